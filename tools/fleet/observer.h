/**
 * The cloud's side of a fleet: hears what the devices tell, and commands them.
 */
#ifndef TOOLS_FLEET_OBSERVER_H
#define TOOLS_FLEET_OBSERVER_H

#include <poll.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tools/nxctl_session.h"

namespace fleet {

using Clock = std::chrono::steady_clock;

/** Who hears it; called inside `take`. Topics and texts are others': anything may come. */
struct Listener {
    /** What a broker tells of a device; `since` is when its connection was made, seconds
     *  since 1970, and `connection` its number in the device's process. */
    struct Status {
        bool online = false;
        double since = 0;
        unsigned connection = 0;
        size_t broker = 0;
    };
    virtual void on_status(const std::string &serial, const Status &status) = 0;
    virtual void on_upload(const std::string &serial, const std::string &kind) = 0;

    /** The answer to the call with this number; not retained, but perhaps not the first. */
    virtual void on_answer(size_t call, const nxctl::Received &answer) = 0;

  protected:
    ~Listener() = default;
};

/** One console on each broker; one that is lost connects again. One thread. */
class Observer {
  public:
    /** Connects to all of them. Throws tools::Failure when one cannot be reached. */
    Observer(const std::vector<std::string> &brokers, Listener &listener);

    /** For the owner's loop: what to wait for, and what to do then, and now and then. */
    std::vector<pollfd> wanted() const;
    void take(const std::vector<pollfd> &ready);

    /** A broker that was ended is not called again until it is `heeded` once more. */
    void heed(size_t broker, bool heeded);

    /** Sends a command; false when the broker is away. */
    bool call(size_t number, size_t broker, const std::string &serial, const std::string &target,
              const std::string &request);

    /** What has gone wrong last, for people; "" for nothing. */
    const std::string &trouble() const { return trouble_; }

  private:
    struct Link {
        nxapi::BrokerAddress address;
        std::unique_ptr<nxctl::Session> session; /**< null: away */
        bool heeded = true;
        Clock::time_point next_try;
    };

    void connect(size_t broker);
    void connect_all();
    void lose(Link &link, const std::string &why);
    void hear(size_t broker, const nxctl::Received &message);

    const nxctl::Access access_;
    Listener &listener_;
    const std::string answer_topic_;
    std::vector<Link> links_;
    std::string trouble_;
};

}  // namespace fleet

#endif
