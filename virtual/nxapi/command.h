/**
 * A command on its way to the agent, and what goes back.
 */
#ifndef VIRTUAL_NXAPI_COMMAND_H
#define VIRTUAL_NXAPI_COMMAND_H

#include <optional>
#include <string>

#include "virtual/nxapi/outbox.h"
#include "virtual/nxapi/topics.h"

namespace nxapi {

struct Command {
    std::string target; /**< "<family>/<slot>", or `topics::serial` */
    std::string request;
    std::string response_topic; /**< empty: the one that belongs to the target */
    std::optional<std::string> correlation;
};

/** The response to a command. `result` is the one of the agent's callback, -1 where
 *  there is no response text. */
inline Message response_to(const Command &command, int result, std::string text) {
    Message message;
    message.below_device = command.response_topic.empty();
    message.topic = message.below_device ? std::string(topics::responses) + command.target
                                         : command.response_topic;
    message.payload = std::move(text);
    message.correlation = command.correlation;
    message.result = result;
    return message;
}

}  // namespace nxapi

#endif
