/**
 * A command on its way to the agent, and what goes back.
 */
#ifndef NXAPI_COMMAND_H
#define NXAPI_COMMAND_H

#include <mosquitto.h>

#include <optional>
#include <string>
#include <string_view>

#include "nxapi/outbox.h"

namespace nxapi {

struct Command {
    std::string target; /**< "<family>/<slot>", or `topics::serial` */
    std::string request;
    std::string response_topic; /**< empty: the one that belongs to the target */
    std::optional<std::string> correlation;

    /** What it holds of memory, without the record itself. */
    size_t bytes() const {
        return target.size() + request.size() + response_topic.size() +
               (correlation ? correlation->size() : 0);
    }
};

/** A command as its message's properties describe it, still without the request. */
Command command_of(std::string_view target, const mosquitto_property *properties);

/** Whether a device may respond on a topic that somebody else chose. Below the root of
 *  all devices that is its own `rsp/` alone: whoever may send one command must not
 *  speak in the name of a device. Elsewhere it is what can be published at all. */
bool may_respond_on(std::string_view topic, std::string_view serial_number);

/** The response to a command. `result` is the one of the agent's callback, -1 where
 *  there is no response text. */
Message response_to(const Command &command, int result, std::string text);

}  // namespace nxapi

#endif
