#include "tools/fleet/fork_server.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/cli.h"

namespace fleet {
namespace {

/** In the child: becomes the server. */
void become_server(const std::filesystem::path &agent, int socket, double speed, bool trace) {
    setpgid(0, 0);  // Ctrl-C is for the fleet's own process
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    fcntl(socket, F_SETFD, 0);
    setenv(vap::fork_server_variable, std::to_string(socket).c_str(), 1);
    setenv("LD_BIND_NOW", "1", 1);
    setenv("VAP_SPEED", std::to_string(speed).c_str(), 1);
    trace ? setenv("VAP_TRACE", "1", 1) : unsetenv("VAP_TRACE");
    execl(agent.c_str(), "norvex", nullptr);
    _exit(127);
}

}  // namespace

ForkServer::ForkServer(const std::filesystem::path &agent, double speed, bool trace) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw tools::Failure(tools::cannot("start", agent));
    }
    socket_ = vap::Descriptor(ends[0]);
    const vap::Descriptor other(ends[1]);
    pid_ = fork();
    if (pid_ == 0) {
        become_server(agent, other.get(), speed, trace);
    }
    if (pid_ < 0) {
        throw tools::Failure(tools::cannot("start", agent));
    }
}

ForkServer::~ForkServer() {
    socket_ = vap::Descriptor();
    waitpid(pid_, nullptr, 0);
}

void ForkServer::send(const vap::ForkOrder &order, size_t size) {
    while (::send(socket_.get(), &order, size, MSG_NOSIGNAL) < 0) {
        if (errno != EINTR) {
            throw tools::Failure("the agents' server has ended");
        }
    }
}

void ForkServer::start(uint32_t tag, const std::filesystem::path &folder,
                       const std::filesystem::path &log) {
    vap::ForkOrder order;
    order.tag = tag;
    const std::string paths = folder.string() + '\0' + log.string() + '\0';
    if (paths.size() > sizeof order.paths) {
        throw tools::Failure(folder.string() + " is too long a path");
    }
    memcpy(order.paths, paths.data(), paths.size());
    send(order, vap::ForkOrder::head + paths.size());
}

void ForkServer::signal(uint32_t tag, int signal) {
    vap::ForkOrder order;
    order.tag = tag;
    order.signal = signal;
    send(order, vap::ForkOrder::head);
}

std::vector<vap::ForkReport> ForkServer::reports() {
    std::vector<vap::ForkReport> all;
    vap::ForkReport report;
    ssize_t size = 0;
    while ((size = recv(socket_.get(), &report, sizeof report, MSG_DONTWAIT)) ==
           static_cast<ssize_t>(sizeof report)) {
        all.push_back(report);
    }
    if (size == 0) {
        throw tools::Failure("the agents' server has ended");
    }
    return all;
}

}  // namespace fleet
