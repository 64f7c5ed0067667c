#include "nxapi/command.h"

#include <mqtt_protocol.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "nxapi/topics.h"

namespace nxapi {
namespace {

/** Levels of a topic. A broker answers deeper ones by closing the connection, and again
 *  whenever the response is sent anew. */
constexpr std::ptrdiff_t most_levels = 64;

using Owned = std::unique_ptr<void, decltype(&std::free)>;

std::string response_topic_of(const mosquitto_property *properties) {
    char *text = nullptr;
    mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &text, false);
    const Owned owner(text, std::free);
    return text == nullptr ? std::string() : std::string(text);
}

std::optional<std::string> correlation_of(const mosquitto_property *properties) {
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) == nullptr) {
        return std::nullopt;
    }
    const Owned owner(data, std::free);
    return std::string(static_cast<const char *>(data), length);
}

}  // namespace

Command command_of(std::string_view target, const mosquitto_property *properties) {
    Command command;
    command.target = target;
    command.response_topic = response_topic_of(properties);
    command.correlation = correlation_of(properties);
    return command;
}

bool may_respond_on(std::string_view topic, std::string_view serial_number) {
    if (topic.starts_with('$') || std::ranges::count(topic, '/') >= most_levels ||
        mosquitto_pub_topic_check2(topic.data(), topic.size()) != MOSQ_ERR_SUCCESS) {
        return false;
    }
    const std::string own = topics::of_device(serial_number, topics::responses);
    return topic.starts_with(own) ? topic.size() > own.size() : !topic.starts_with(topics::root);
}

Message response_to(const Command &command, int result, std::string text) {
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
