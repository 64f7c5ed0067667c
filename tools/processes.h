/**
 * Programs on loopback that end with their owner: a broker on a free port, and others.
 */
#ifndef TOOLS_PROCESSES_H
#define TOOLS_PROCESSES_H

#include <arpa/inet.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tools/temp_folder.h"

namespace tools {

/** How long one waits for what must come; reached only when it does not. */
constexpr std::chrono::seconds patience{20};

inline sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/** A listening socket on a free port, which holds the port for its life. */
class Listener {
  public:
    Listener() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof(address);
        ::bind(fd_, reinterpret_cast<sockaddr *>(&address), size);
        ::listen(fd_, 16);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~Listener() { close(fd_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
    int fd() const { return fd_; }
    int port() const { return port_; }

  private:
    int fd_;
    int port_ = 0;
};

/** True when somebody accepts connections on the loopback port. */
inline bool is_listening(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool open =
        ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(fd);
    return open;
}

/** A program that ends with its owner, and with its owner's process. */
class Child {
  public:
    explicit Child(const std::vector<std::string> &words, const std::string &log_file) {
        std::vector<char *> arguments;
        for (const std::string &word : words) {
            arguments.push_back(const_cast<char *>(word.c_str()));
        }
        arguments.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            setpgid(0, 0);  // Ctrl-C is for the owner
            sigset_t none;
            sigemptyset(&none);
            sigprocmask(SIG_SETMASK, &none, nullptr);
            if (freopen(log_file.c_str(), "a", stdout) == nullptr || dup2(1, 2) < 0) {
                _exit(126);
            }
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Child() { end(SIGKILL); }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t pid() const { return pid_; }

    bool is_running() {
        if (pid_ > 0 && waitpid(pid_, &status_, WNOHANG) != 0) {
            pid_ = -1;
        }
        return pid_ > 0;
    }

    /** Ends it unless it has ended; its status as `waitpid` tells it. */
    int end(int signal) {
        if (pid_ > 0) {
            kill(pid_, signal);
            waitpid(pid_, &status_, 0);
            pid_ = -1;
        }
        return status_;
    }

  private:
    pid_t pid_ = -1;
    int status_ = 0;
};

class Broker {
  public:
    /** Starts a broker that lets everybody in. */
    Broker() { start(); }

    /** Starts it with these lines of mosquitto.conf; "PORT" stands for the port. */
    explicit Broker(const std::string &settings) : settings_(settings) { start(); }

    void start() {
        write_settings();
        const auto limit = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < limit) {
            child_ = std::make_unique<Child>(
                std::vector<std::string>{"/usr/sbin/mosquitto", "-c", (folder() / "conf").string()},
                (folder() / "log").string());
            while (child_->is_running() && std::chrono::steady_clock::now() < limit) {
                if (is_listening(port_)) {
                    return;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        }
        std::ifstream log(folder() / "log");
        throw std::runtime_error("the broker does not start: " +
                                 std::string(std::istreambuf_iterator<char>(log), {}));
    }

    void stop(int signal = SIGTERM) {
        child_->end(signal);
        child_.reset();
    }

    /** Signals it, for example to freeze. */
    void signal(int number) const { kill(child_->pid(), number); }

    int port() const { return port_; }
    std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port_); }

    /** Where its files are; the owner may put more there. */
    const std::filesystem::path &folder() const { return folder_.path(); }

  private:
    void write_settings() {
        std::string text = settings_;
        for (size_t at = 0; (at = text.find("PORT", at)) != text.npos;) {
            text.replace(at, 4, std::to_string(port_));
        }
        std::ofstream conf(folder() / "conf");
        conf << text << "set_tcp_nodelay true\n";
        if (geteuid() == 0) {
            conf << "user root\n";
        }
    }

    TempFolder folder_;
    int port_ = Listener().port();
    std::string settings_ = "listener PORT 127.0.0.1\nallow_anonymous true\n";
    std::unique_ptr<Child> child_;
};

}  // namespace tools

#endif
