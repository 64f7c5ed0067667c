/**
 * A console's connection to a broker.
 */
#ifndef TOOLS_NXCTL_SESSION_H
#define TOOLS_NXCTL_SESSION_H

#include <mosquitto.h>
#include <poll.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli.h"

namespace nxctl {

using Clock = std::chrono::steady_clock;

/** How the tool ends, besides what all tools share. */
enum Exit { done = 0, refused = 2, unanswered = 3, unwilling = 4 };

/** Where the broker is, and who one is there. */
struct Access {
    std::string broker; /**< mqtt://HOST[:PORT] or mqtts://HOST[:PORT] */
    std::string user;
    std::string password;
    std::string cafile; /**< PEM, as the two others */
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

/** A message to send. A request has a response topic; a text that is to stay on the
 *  broker is retained. */
struct Sent {
    std::string topic;
    std::string payload;
    std::string response_topic;
    std::string correlation;
    std::chrono::seconds expiry{0}; /**< afterwards the broker delivers it no more; 0: never */
    bool retained = false;
};

/** The connection ended; another one may work. */
struct Lost : tools::Failure {
    using Failure::Failure;
};

/** Everything happens inside `work`, `subscribe` and the constructor, one thread. What
 *  a callback throws comes out of them. Each throws Failure when it cannot do its work. */
class Session {
  public:
    /** Connects, for ten seconds at most (longer when the look-up of the name takes it). */
    explicit Session(const Access &access);
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /** Subscribes. What the broker retains on the topics has come when it returns, on a
     *  broker that sends it before it agrees, as mosquitto does: `settle` waits for the
     *  others. */
    void subscribe(const std::vector<std::string> &topics);

    /** Waits until nothing has come for a while. */
    void settle();

    /** Sends; the packet identifier that `on_acknowledged` will get. */
    int publish(const Sent &message);

    /** Works until `done`, or until the time is over: false. */
    bool work(const std::function<bool()> &done, Clock::time_point until);

    /** For a loop of one's own in place of `work`: what to wait for, and what to do then,
     *  also now and then when nothing came. */
    pollfd wanted() const;
    void take(short ready);

    std::function<void(const Received &)> on_message = [](const Received &) {};

    /** A reason of 0x80 and above is a refusal, `mosquitto_reason_string` names it. */
    std::function<void(int identifier, int reason)> on_acknowledged = [](int, int) {};

    /** HOST:PORT of the broker. */
    const std::string &address() const { return address_; }

  private:
    void set_callbacks();
    void set_tls(const Access &access);
    void connect(const std::string &host, int port);
    void agree(const std::vector<std::string> &topics, int qos, int options);
    short wanted_events() const;
    void take_tcp(short ready);
    std::string reason(int result, int error) const;
    void step();
    template <typename Call>
    void shielded(Call call) noexcept;
    [[noreturn]] void fail(int result, int error);

    std::unique_ptr<mosquitto, void (*)(mosquitto *)> mosq_;
    std::string address_;
    bool tls_ = false;
    bool tcp_pending_ = false;
    int tcp_error_ = 0; /**< of the last address that was tried at once */
    bool connected_ = false;
    bool subscribed_ = false;
    Clock::time_point last_in_;
    std::exception_ptr thrown_; /**< by a callback */
    std::string refusal_;       /**< the broker's words when it refuses something */
    std::string last_problem_;  /**< what libmosquitto logged last */
};

}  // namespace nxctl

#endif
