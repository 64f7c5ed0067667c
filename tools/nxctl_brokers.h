/**
 * The brokers that a console asks: a session with each of a list, as if they were one.
 */
#ifndef TOOLS_NXCTL_BROKERS_H
#define TOOLS_NXCTL_BROKERS_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/nxctl_session.h"

namespace nxctl {

/** What becomes of a broker that is lost while others are there. */
enum class Loss { left_out, tried_again };

/** Everything happens inside the constructor, `subscribe`, `settle` and `work`, one thread.
 *  What a callback throws comes out of them. A broker that is lost is told on standard
 *  error; they throw Lost when it is the last one, or, where brokers are tried again, when
 *  none was ever there. A broker is known by its place in the list. */
class Brokers {
  public:
    /** Connects to all. Throws Misuse for what is no list of brokers. */
    explicit Brokers(const Access &access, Loss loss = Loss::left_out);
    Brokers(const Brokers &) = delete;
    Brokers &operator=(const Brokers &) = delete;

    size_t count() const { return lines_.size(); }

    /** HOST:PORT. */
    std::string address(size_t broker) const { return address_text(lines_[broker].broker); }

    /** Subscribes on each, those that come back included, and waits until they agree. */
    void subscribe(const std::vector<std::string> &topics);

    /** Waits until nothing has come for a while. */
    void settle();

    /** Sends to one; the packet identifier that `on_acknowledged` will get, none when the
     *  broker is away. */
    std::optional<int> publish(size_t broker, const Sent &message);

    /** Works until `done`, or until the time is over: false. */
    bool work(const std::function<bool()> &done, Clock::time_point until);

    std::function<void(const Received &)> on_message = [](const Received &) {};
    std::function<void(size_t broker, int identifier, int reason)> on_acknowledged = [](size_t, int,
                                                                                        int) {};
    std::function<void(size_t broker)> on_lost = [](size_t) {};

  private:
    struct Line {
        nxapi::BrokerAddress broker;
        std::unique_ptr<Session> session;
        std::string why; /**< it was lost, until it is there again; told once */
        Clock::time_point next_try;
        std::chrono::seconds pause{};
    };

    bool any_is_connected() const;
    bool all_are(bool (Session::*state)() const) const; /**< of those that are there */
    void connect_all();
    void connect(size_t broker);
    void turn(size_t broker, short ready);
    void lose(size_t broker, const Lost &lost);
    void tell(const Line &line) const;

    const Access access_;
    const Loss loss_;
    std::vector<Line> lines_;
    std::vector<std::string> topics_;
    bool is_started_ = false;
};

}  // namespace nxctl

#endif
