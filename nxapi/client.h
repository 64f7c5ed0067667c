/**
 * The library behind the contract, but for its global state: the settings, the link
 * to the broker and the commands on their way to the agent.
 */
#ifndef NXAPI_CLIENT_H
#define NXAPI_CLIENT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nxapi/inbox.h"
#include "nxapi/link.h"
#include "nxapi/registry.h"
#include "nxapi/settings.h"
#include "platform/nxapi.h"

namespace nxapi {

class Client {
  public:
    /** `registry` holds the agent's tables and outlives the client. */
    Client(Settings settings, const Registry &registry);

    /** False when the system has no descriptor, memory or thread left. Without a
     *  broker in the settings the client has nothing to do, and succeeds. */
    bool start();

    /** Readable while `dispatch` has something to do; -1 when there is no descriptor. */
    int fd() const { return link_.fd(); }

    /** Reads what the broker has sent, runs the commands among it and sends their
     *  responses. Main thread. */
    void dispatch();

    /** Takes the identity and lets the device appear under its serial number. False
     *  when that cannot stand in a topic. Main thread. */
    bool introduce(const nx_basic_info &info);

    /** Publishes `data` on the device's topic `kind`, for example "up/alarm", now or
     *  once the broker is back. False when it can be neither sent nor kept. Any
     *  thread. */
    bool upload(std::string_view kind, std::string_view data);

    /** The result that the settings give a call of the contract; nothing as a rule. */
    std::optional<int> fault(std::string_view call) const;

    bool is_up() { return link_.is_up(); }

  private:
    void run(const Command &command);
    int assign_serial(const std::string &serial);

    Settings settings_;
    const Registry &registry_;
    nx_basic_info info_{};
    Inbox inbox_;
    Link link_;
    std::vector<Command> batch_; /**< empty between two calls of `dispatch` */
};

/** True when a serial number can stand in a topic as a level of its own and in the
 *  agent's store: 1 to 32 characters of printable UTF-8 without + # and /. */
bool is_serial(std::string_view serial);

}  // namespace nxapi

#endif
