/**
 * Processes of a test or a benchmark: a broker on a free loopback port, other
 * programs, and a console that speaks to the broker.
 */
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <arpa/inet.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_folder.h"

namespace test {

using Clock = std::chrono::steady_clock;

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

/** A program that ends with its owner, and with the test. */
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
        const auto limit = Clock::now() + patience;
        while (Clock::now() < limit) {
            child_ = std::make_unique<Child>(
                std::vector<std::string>{"/usr/sbin/mosquitto", "-c", (folder() / "conf").string()},
                (folder() / "log").string());
            while (child_->is_running() && Clock::now() < limit) {
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

    /** Where its files are; the test may put more there. */
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

/** A message that the console got. */
struct Received {
    std::string topic;
    std::string payload;
    bool retained = false;
    std::string correlation;
    std::string result; /**< the user property of this name */
};

/** PEM files of a TLS client. */
struct Credentials {
    std::string cafile, certfile, keyfile;
};

/** An MQTT client that works only while `loop` is called. */
class Console {
  public:
    explicit Console(const Broker &broker, const Credentials &credentials = {},
                     const std::string &topic = "norvex/v1/#")
        : mosq_(mosquitto_new(nullptr, true, this), mosquitto_destroy) {
        if (!credentials.cafile.empty()) {
            mosquitto_tls_set(mosq_.get(), credentials.cafile.c_str(), nullptr,
                              credentials.certfile.c_str(), credentials.keyfile.c_str(), nullptr);
        }
        mosquitto_int_option(mosq_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_int_option(mosq_.get(), MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_message_v5_callback_set(mosq_.get(), on_message);
        mosquitto_subscribe_callback_set(mosq_.get(),
                                         [](mosquitto *, void *self, int, int, const int *) {
                                             static_cast<Console *>(self)->subscribed_ = true;
                                         });
        if (mosquitto_connect(mosq_.get(), "127.0.0.1", broker.port(), 60) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("the console cannot connect");
        }
        mosquitto_subscribe(mosq_.get(), nullptr, topic.c_str(), 1);
        for (const auto limit = Clock::now() + patience; !subscribed_ && Clock::now() < limit;) {
            loop();
        }
    }

    void loop(int ms = 5) { mosquitto_loop(mosq_.get(), ms, 1); }

    /** Publishes a command; both properties only where they are given. */
    void publish(const std::string &topic, const std::string &payload,
                 const std::string &response_topic = "", const std::string &correlation = "",
                 bool retain = false) {
        mosquitto_property *properties = nullptr;
        if (!response_topic.empty()) {
            mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                          response_topic.c_str());
        }
        if (!correlation.empty()) {
            mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                          correlation.data(),
                                          static_cast<uint16_t>(correlation.size()));
        }
        mosquitto_publish_v5(mosq_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                             payload.data(), 1, retain, properties);
        mosquitto_property_free_all(&properties);
    }

    /** Everything so far, in its order. */
    std::vector<Received> received;

    /** Payloads so far on a topic. */
    std::vector<std::string> on(const std::string &topic) const {
        std::vector<std::string> payloads;
        for (const Received &message : received) {
            if (message.topic == topic) {
                payloads.push_back(message.payload);
            }
        }
        return payloads;
    }

    /** The last message on a topic; an empty one when none came. */
    Received last(const std::string &topic) const {
        Received found;
        for (const Received &message : received) {
            if (message.topic == topic) {
                found = message;
            }
        }
        return found;
    }

  private:
    static void on_message(mosquitto *, void *self, const mosquitto_message *message,
                           const mosquitto_property *properties) {
        Received received;
        received.topic = message->topic;
        received.payload.assign(static_cast<const char *>(message->payload),
                                static_cast<size_t>(message->payloadlen));
        received.retained = message->retain;
        void *data = nullptr;
        uint16_t length = 0;
        if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                           false) != nullptr) {
            received.correlation.assign(static_cast<const char *>(data), length);
            free(data);
        }
        char *name = nullptr;
        char *value = nullptr;
        if (mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value,
                                                false) != nullptr) {
            received.result = value;
            free(name);
            free(value);
        }
        static_cast<Console *>(self)->received.push_back(received);
    }

    std::unique_ptr<mosquitto, void (*)(mosquitto *)> mosq_;
    bool subscribed_ = false;
};

}  // namespace test

#endif
