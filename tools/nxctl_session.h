/**
 * A console's connection to one broker.
 */
#ifndef TOOLS_NXCTL_SESSION_H
#define TOOLS_NXCTL_SESSION_H

#include <mosquitto.h>
#include <poll.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nxapi/route.h"
#include "tools/cli.h"

namespace nxctl {

using Clock = std::chrono::steady_clock;

/** How the tool ends, besides what all tools share. */
enum Exit { done = 0, refused = 2, unanswered = 3, unwilling = 4 };

/** Where the brokers are, and who one is there. */
struct Access {
    std::string broker; /**< mqtt://HOST[:PORT] or mqtts://HOST[:PORT], several with commas */
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
    int result = 0;    /**< of the agent's callback, in a response */
    size_t broker = 0; /**< that it came from: its place in the list */
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

/** There is no connection to the broker, or it is of no use; another one may be. */
struct Lost : tools::Failure {
    using Failure::Failure;
};

/** Blocks in the look-up of a name alone. The owner waits for `wanted` and then calls
 *  `work`, at least each second; callbacks run inside of that, and what they throw comes
 *  out of it. */
class Session {
  public:
    /** Begins to connect, for ten seconds at most to each address of the broker's name.
     *  Throws Lost when it has none, Misuse and Failure for TLS without what it takes.
     *  `access` outlives the session. */
    Session(const Access &access, const nxapi::BrokerAddress &broker);
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    /** Subscribes, as soon as there is a connection. */
    void subscribe(const std::vector<std::string> &topics);

    /** Sends; the packet identifier that `on_acknowledged` will get, none when the
     *  connection has ended. Throws Failure for a message that cannot be sent. */
    std::optional<int> publish(const Sent &message);

    /** Waits no longer than this for a connection. */
    void hurry(Clock::time_point latest) { latest_ = latest; }

    bool is_connected() const { return connected_; }

    /** Nothing that it subscribed to is open. What the broker retains there has come then,
     *  on a broker that sends it before it agrees, as mosquitto does. */
    bool is_ready() const { return connected_ && to_ask_.empty() && open_ == 0; }

    /** When the broker sent something last. */
    Clock::time_point last_in() const { return last_in_; }

    pollfd wanted() const;

    /** Does what is to be done; `ready` are the events of `wanted` that came. Throws Lost
     *  when there is no connection any more, or none in time. */
    void work(short ready);

    std::function<void(Received &)> on_message = [](Received &) {};

    /** A reason of 0x80 and above is a refusal, `mosquitto_reason_string` names it. */
    std::function<void(int identifier, int reason)> on_acknowledged = [](int, int) {};

  private:
    void set_callbacks();
    void set_tls();
    void connect();
    void open(const std::string &host);
    void ask();
    void agree(const std::vector<std::string> &topics, int qos, int options);
    void take_tcp(short ready);
    void exchange();
    void step(short ready);
    void check_time() const;
    std::string reason(int result, int error) const;
    template <typename Call>
    void shielded(Call call) noexcept;
    [[noreturn]] void fail(int result, int error) const;

    const Access &access_;
    const std::vector<nxapi::BrokerAddress> broker_; /**< the one */
    const std::string address_;                      /**< HOST:PORT */
    nxapi::Route route_;                             /**< the addresses of its name */
    std::unique_ptr<mosquitto, void (*)(mosquitto *)> mosq_;
    std::vector<std::vector<std::string>> to_ask_; /**< topics to subscribe to */
    int open_ = 0;                                 /**< subscriptions without an answer */
    bool tcp_pending_ = false;
    int tcp_error_ = 0; /**< of the last address that was tried at once */
    bool connected_ = false;
    Clock::time_point began_; /**< to connect */
    Clock::time_point latest_ = Clock::time_point::max();
    Clock::time_point last_in_;
    std::exception_ptr thrown_; /**< by a callback */
    std::string refusal_;       /**< the broker's words when it refuses the connection */
    std::string deaf_;          /**< its words when it refuses a subscription */
    std::string last_problem_;  /**< what libmosquitto logged last */
};

/** HOST:PORT of a broker. */
std::string address_text(const nxapi::BrokerAddress &broker);

}  // namespace nxctl

#endif
