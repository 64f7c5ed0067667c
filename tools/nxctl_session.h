/**
 * A console's connection to the broker.
 */
#ifndef TOOLS_NXCTL_SESSION_H
#define TOOLS_NXCTL_SESSION_H

#include <mosquitto.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace nxctl {

using Clock = std::chrono::steady_clock;

/** How the tool ends. */
enum Exit { answered = 0, failed = 1, refused = 2, unanswered = 3 };

/** A sentence for the user, and how the tool ends behind it. */
struct Failure : std::runtime_error {
    explicit Failure(const std::string &sentence, Exit how = failed)
        : std::runtime_error(sentence), exit(how) {}
    Exit exit;
};

struct Options {
    std::string broker;
    std::string user;
    std::string cafile;
    std::string certfile;
    std::string keyfile;
};

struct Received {
    std::string topic;
    std::string payload;
    bool retained = false;
    std::string correlation;
    int result = 0; /**< of the agent's callback, in a response */
};

struct Request {
    std::string topic;
    std::string payload;
    std::string response_topic;
    std::string correlation;
    std::chrono::seconds expiry{1}; /**< afterwards the broker delivers it no more */
};

/** Everything happens inside `work`; a lost connection throws Failure. */
class Session {
  public:
    /** Connects, for ten seconds at most. */
    explicit Session(const Options &options);

    /** Subscribes, and returns when the broker has agreed. */
    void subscribe(const std::vector<std::string> &topics);

    /** Publishes; the packet identifier that `on_acknowledged` will get. */
    int publish(const Request &request);

    /** Works until `done`, or until the time is over: false. */
    bool work(const std::function<bool()> &done, Clock::time_point until);

    std::function<void(const Received &)> on_message = [](const Received &) {};
    std::function<void(int identifier, int reason)> on_acknowledged = [](int, int) {};

  private:
    void set_callbacks();
    void set_tls(const Options &options);
    [[noreturn]] void fail(const std::string &what, int result);

    std::unique_ptr<mosquitto, void (*)(mosquitto *)> mosq_;
    std::string address_;
    bool connected_ = false;
    bool subscribed_ = false;
    std::string refusal_;      /**< the broker's words when it refuses something */
    std::string last_problem_; /**< what libmosquitto logged last */
};

}  // namespace nxctl

#endif
