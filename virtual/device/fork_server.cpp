#include "virtual/fork_server.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <span>

#include "virtual/device/device.h"
#include "virtual/folder/files.h"
#include "virtual/inside.h"

namespace vap {
namespace {

/** Does the server tell this process of changes? */
bool told_of_changes = false;

struct Life {
    pid_t pid; /**< 0: none */
    int watch; /**< of the device folder; 0: none */
};

sigset_t set_of(int signal) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

/** The records of the children, in pages that they do not inherit: what the server
 *  writes there later would cost each of them a copy. */
std::span<Life> map_lives() {
    void *const pages = mmap(nullptr, most_forks * sizeof(Life), PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) {
        return {};
    }
    madvise(pages, most_forks * sizeof(Life), MADV_DONTFORK);
    return {static_cast<Life *>(pages), most_forks};
}

class ForkServer {
  public:
    explicit ForkServer(int socket)
        : socket_(socket), watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)), lives_(map_lives()) {
        const sigset_t ends = set_of(SIGCHLD);
        sigprocmask(SIG_BLOCK, &ends, &mask_);
        ended_ = Descriptor(signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    /** Serves until the other side has hung up; returns in the children alone. */
    void serve() {
        prctl(PR_SET_NAME, "vap-fleet");
        while (!lives_.empty() && ended_.get() >= 0) {
            pollfd ready[] = {
                {socket_.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}, {watch_.get(), POLLIN, 0}};
            ready[0].events = static_cast<short>(reports_.empty() ? POLLIN : POLLIN | POLLOUT);
            if (poll(ready, std::size(ready), -1) < 0) {
                continue;
            }
            if (ready[1].revents != 0) {
                reap();
            }
            if (ready[2].revents != 0) {
                pass_changes_on();
            }
            send_reports();
            if (ready[0].revents != 0 && !obey()) {
                break;
            }
            if (is_child_) {
                return;
            }
        }
        for (const Life &life : lives_.first(highest_)) {
            if (life.pid > 0) {
                kill(-life.pid, SIGKILL);
            }
        }
        _exit(0);
    }

  private:
    /** Takes an order if there is one; false: there will be none. */
    bool obey() {
        ForkOrder order;
        const ssize_t size = recv(socket_.get(), &order, sizeof order, MSG_DONTWAIT);
        if (size <= 0) {
            return size < 0 && (errno == EAGAIN || errno == EINTR);
        }
        if (size < static_cast<ssize_t>(ForkOrder::head) || order.tag >= lives_.size()) {
            return false;
        }
        Life &life = lives_[order.tag];
        if (order.signal == 0) {
            start(order, life);
        } else if (life.pid > 0) {
            kill(-life.pid, order.signal);
        }
        return true;
    }

    void start(ForkOrder &order, Life &life) {
        order.paths[sizeof order.paths - 1] = '\0';
        const char *const folder = order.paths;
        const size_t length = strlen(folder);
        const char *const log = length + 1 < sizeof order.paths ? folder + length + 1 : "";
        const int watch =
            life.pid > 0 ? 0
                         : inotify_add_watch(watch_.get(), folder, IN_MOVED_TO | IN_CLOSE_WRITE);
        const pid_t parent = getpid();
        const pid_t child = life.pid > 0 ? (errno = EBUSY, -1) : fork();
        if (child == 0) {
            become_device(folder, log, parent, watch > 0);
            return;
        }
        if (child > 0) {
            setpgid(child, child);
            life = {child, std::max(watch, 0)};
            highest_ = std::max<size_t>(highest_, order.tag + 1);
        }
        reports_.push_back({ForkReport::started, order.tag, child, child < 0 ? errno : 0});
    }

    /** In a child: lets go of what is the server's, and is ready for `main`. */
    void become_device(const char *folder, const char *log, pid_t parent, bool watched) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(0);
        }
        prctl(PR_SET_NAME, "norvex");
        socket_ = Descriptor();
        ended_ = Descriptor();
        watch_ = Descriptor();
        const Descriptor out(open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, private_file));
        if (out.get() >= 0) {
            dup2(out.get(), STDOUT_FILENO);
            dup2(out.get(), STDERR_FILENO);
        }
        setenv("VAP_DEVICE", folder, 1);
        sigset_t mask = mask_;
        if (watched) {
            sigaddset(&mask, change_signal());  // waits until the device listens
        }
        sigprocmask(SIG_SETMASK, &mask, nullptr);
        told_of_changes = watched;
        is_child_ = true;
    }

    void reap() {
        signalfd_siginfo ignored;
        while (read(ended_.get(), &ignored, sizeof ignored) > 0) {
        }
        for (siginfo_t end{};
             waitid(P_ALL, 0, &end, WEXITED | WNOHANG | WNOWAIT) == 0 && end.si_pid > 0;) {
            // What the agent ran and left behind, while nobody else can have the number.
            kill(-end.si_pid, SIGKILL);
            forget(end.si_pid);
            end = {};
        }
    }

    void forget(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        const auto known = lives_.first(highest_);
        const auto life = std::ranges::find(known, pid, &Life::pid);
        if (life == known.end()) {
            return;
        }
        if (life->watch > 0) {
            inotify_rm_watch(watch_.get(), life->watch);
        }
        *life = {};
        reports_.push_back(
            {ForkReport::ended, static_cast<uint32_t>(life - known.begin()), pid, status});
    }

    /** Signals the devices whose description was replaced. */
    void pass_changes_on() {
        alignas(inotify_event) char bytes[4096];
        for (ssize_t got = 0; (got = read(watch_.get(), bytes, sizeof bytes)) > 0;) {
            for (const char *at = bytes; at < bytes + got;) {
                const auto *event = reinterpret_cast<const inotify_event *>(at);
                at += sizeof *event + event->len;
                const bool overflow = (event->mask & IN_Q_OVERFLOW) != 0;
                if (!overflow && (event->len == 0 || strcmp(event->name, "hardware.json") != 0)) {
                    continue;
                }
                for (const Life &life : lives_.first(highest_)) {
                    if (life.pid > 0 && (overflow || life.watch == event->wd)) {
                        kill(life.pid, change_signal());
                    }
                }
            }
        }
    }

    void send_reports() {
        while (!reports_.empty() && send(socket_.get(), &reports_.front(), sizeof reports_.front(),
                                         MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
            reports_.pop_front();
        }
    }

    Descriptor socket_;
    Descriptor ended_; /**< SIGCHLD */
    Descriptor watch_; /**< over all device folders */
    std::span<Life> lives_;
    size_t highest_ = 0; /**< tags so far are below it */
    std::deque<ForkReport> reports_;
    sigset_t mask_{}; /**< that the process came with */
    bool is_child_ = false;
};

/** Runs before `main`; in a process that is no fork server it does nothing. */
[[gnu::constructor]] void hold_before_main() {
    const char *const number = getenv(fork_server_variable);
    if (number == nullptr) {
        return;
    }
    const Inside inside;
    const int socket = static_cast<int>(strtol(number, nullptr, 10));
    unsetenv(fork_server_variable);
    fcntl(socket, F_SETFD, FD_CLOEXEC);
    ForkServer(socket).serve();
}

}  // namespace

int change_signal() {
    return SIGRTMIN + 2;
}

bool is_told_of_changes() {
    return told_of_changes;
}

}  // namespace vap
