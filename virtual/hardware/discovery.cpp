/* What runs beside the agent: the local discovery service behind "/tmp/auto.socket",
   and the watch over hardware.json, both on one thread. */
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "virtual/folder/files.h"
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

constexpr const char *socket_path = "/tmp/auto.socket";
constexpr size_t request_size = 64;
constexpr size_t most_clients = 32;

struct Client {
    Descriptor fd;
    std::string request;
};

/** Both services of the current device; everything but `wake` and the atomic
 *  members belongs to their thread. */
struct Services {
    explicit Services(int wake_fd) : wake(wake_fd) {}

    std::thread thread;
    std::atomic<bool> stopping{false};
    std::atomic<uint32_t> asked{0};    /**< changes that the thread was woken for */
    std::atomic<uint32_t> followed{0}; /**< and those that it has taken in */
    Descriptor wake;
    Descriptor watch;    /**< inotify or signalfd; -1: the file is looked at once a second */
    Descriptor listener; /**< -1: the service is absent */
    std::vector<Client> clients;
};

std::unique_ptr<Services> &services() {
    static std::unique_ptr<Services> &one = *new std::unique_ptr<Services>;
    return one;
}

Descriptor listen_there() {
    const std::filesystem::path path = host_path(socket_path);
    std::error_code ignored;
    make_folders(path.parent_path());
    std::filesystem::remove(path, ignored);
    const LocalAddress address(path);
    Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (bind(fd.get(), address.get(), address.length()) != 0 || listen(fd.get(), 8) != 0) {
        fprintf(stderr, "vap: no discovery service at %s: %s\n", path.c_str(), strerror(errno));
        return Descriptor();
    }
    return fd;
}

void follow_equipment(Services &all) {
    const bool wanted = equipment_now()->discovery != Discovery::absent;
    if (wanted && all.listener.get() < 0) {
        all.listener = listen_there();
    } else if (!wanted) {
        std::error_code ignored;
        std::filesystem::remove(host_path(socket_path), ignored);
        all.listener = Descriptor();
        all.clients.clear();
    }
}

/** Takes a whole request; answers it unless the service is silent. */
void serve(Client &client) {
    const bool answers = equipment_now()->discovery == Discovery::answers;
    record("autodiscover", Json::array({bytes_arg(client.request.data(), client.request.size())}),
           answers ? 0 : -1);
    if (answers) {
        const std::string answer(request_size, '\0');
        send(client.fd.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
        client.fd = Descriptor();
    }
}

/** Reads what a client has sent; its descriptor is closed when it is done. */
void hear(Client &client) {
    char bytes[request_size];
    const ssize_t got = recv(client.fd.get(), bytes, sizeof bytes, 0);
    if (got <= 0) {
        if (got == 0 || errno != EAGAIN) {
            client.fd = Descriptor();
        }
        return;
    }
    const bool asked = client.request.size() >= request_size;
    client.request.append(bytes, static_cast<size_t>(got));
    if (!asked && client.request.size() >= request_size) {
        client.request.resize(request_size);
        serve(client);
    }
}

/** Takes in a hardware.json that was replaced. */
void look_at_description() {
    hardware();
    equipment_now();
}

/** Has the server's signal come? */
bool was_told(const Descriptor &watch) {
    signalfd_siginfo signal;
    bool told = false;
    while (read(watch.get(), &signal, sizeof signal) > 0) {
        told = true;
    }
    return told;
}

/** Has the watch over the folder seen a replaced hardware.json? */
bool was_replaced(const Descriptor &watch) {
    alignas(inotify_event) char bytes[4096];
    bool changed = false;
    for (ssize_t got = 0; (got = read(watch.get(), bytes, sizeof bytes)) > 0;) {
        for (const char *at = bytes; at < bytes + got;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            changed = changed || (event->len > 0 && strcmp(event->name, "hardware.json") == 0);
            at += sizeof *event + event->len;
        }
    }
    return changed;
}

void accept_client(Services &all) {
    Descriptor fd(accept4(all.listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.get() >= 0 && all.clients.size() < most_clients) {
        all.clients.push_back({std::move(fd), ""});
    }
}

void run_services(Services &all) {
    const int wait_ms = all.watch.get() < 0 ? 1000 : -1;
    while (!all.stopping) {
        std::vector<pollfd> ready{{all.wake.get(), POLLIN, 0},
                                  {all.watch.get(), POLLIN, 0},
                                  {all.listener.get(), POLLIN, 0}};
        for (const Client &client : all.clients) {
            ready.push_back({client.fd.get(), POLLIN, 0});
        }
        if (poll(ready.data(), ready.size(), wait_ms) < 0) {
            continue;
        }
        if (all.watch.get() < 0) {
            look_at_description();
        }
        for (size_t i = 3; i < ready.size(); i++) {
            if (ready[i].revents != 0) {
                hear(all.clients[i - 3]);
            }
        }
        std::erase_if(all.clients, [](const Client &client) { return client.fd.get() < 0; });
        if (ready[2].revents != 0) {
            accept_client(all);
        }
        if (ready[1].revents != 0) {
            if (is_told_of_changes() ? was_told(all.watch) : was_replaced(all.watch)) {
                look_at_description();
            }
        }
        uint64_t wakes = 0;
        if (read(all.wake.get(), &wakes, sizeof wakes) > 0) {
            const uint32_t asked = all.asked;
            follow_equipment(all);
            all.followed = asked;
            all.followed.notify_all();
        }
    }
}

/** Watches the folder for a replaced hardware.json; -1, with a line on standard error,
 *  where the machine has no such watch left. */
Descriptor watch_folder() {
    if (is_told_of_changes()) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, change_signal());
        return Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    Descriptor fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (fd.get() >= 0 &&
        inotify_add_watch(fd.get(), folder().c_str(), IN_MOVED_TO | IN_CLOSE_WRITE) >= 0) {
        return fd;
    }
    const char *why = strerror(errno);
    fprintf(stderr, "vap: no watch over %s (%s): hardware.json is looked at once a second\n",
            folder().c_str(), why);
    return Descriptor();
}

}  // namespace

void start_services() {
    const Inside inside;
    services() = std::make_unique<Services>(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    Services &all = *services();
    all.watch = watch_folder();
    follow_equipment(all);
    if (all.wake.get() < 0 ||
        !start_thread(all.thread, "discovery", [&all] { run_services(all); })) {
        services().reset();
        throw std::runtime_error("the services beside the agent cannot start");
    }
}

void wake_services() {
    if (services()) {
        const uint64_t one = 1;
        ++services()->asked;
        write_all(services()->wake.get(), {reinterpret_cast<const char *>(&one), sizeof one});
    }
}

void settle_services() {
    if (!services()) {
        return;
    }
    const uint32_t asked = services()->asked;
    for (uint32_t followed = services()->followed; followed < asked;
         followed = services()->followed) {
        services()->followed.wait(followed);
    }
}

void stop_services() {
    if (!services()) {
        return;
    }
    services()->stopping = true;
    wake_services();
    services()->thread.join();
    std::error_code ignored;
    std::filesystem::remove(host_path(socket_path), ignored);
    services().reset();
}

}  // namespace vap
