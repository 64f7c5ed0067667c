/**
 * The topics of a device. Everything of a device lies below
 * "norvex/v1/<serial>/":
 *
 *   status              up, retained: {"online":true,"connection":3,"since":1767225600.123},
 *                       false for a device that is gone
 *   cmd/<family>/<slot> down: the request of a command
 *   cmd/system/serial   down: a new serial number, as plain text
 *   rsp/<family>/<slot> up: the response, unless the command names another topic
 *   up/<kind>           up: an upload; identity and binding are retained
 */
#ifndef NXAPI_TOPICS_H
#define NXAPI_TOPICS_H

#include <cstdio>
#include <string>
#include <string_view>

namespace nxapi::topics {

inline constexpr std::string_view root = "norvex/v1/";
inline constexpr std::string_view status = "status";
inline constexpr std::string_view commands = "cmd/";
inline constexpr std::string_view responses = "rsp/";
inline constexpr std::string_view uploads = "up/";
inline constexpr std::string_view identity = "up/identity";
inline constexpr std::string_view binding = "up/binding";

/** Behind `commands` and `responses`: the assignment of a serial number. */
inline constexpr std::string_view serial = "system/serial";

/** The text of `status`. Of several brokers' texts about a device that of its newest
 *  connection counts, the one with the greatest "since", then "connection".
 *  @param connection  grows with each connection of a process
 *  @param since       when it was made, seconds since 1970 */
inline std::string presence(bool online, unsigned connection, double since) {
    char text[96];
    std::snprintf(text, sizeof(text), R"({"online":%s,"connection":%u,"since":%.3f})",
                  online ? "true" : "false", connection, since);
    return text;
}

/** Name of the MQTT 5 user property that carries the callback's own result. */
inline constexpr const char *result_property = "result";

/** "norvex/v1/<serial>/" followed by what lies below. */
inline std::string of_device(std::string_view serial_number, std::string_view below) {
    std::string topic;
    topic.reserve(root.size() + serial_number.size() + 1 + below.size());
    return topic.append(root).append(serial_number).append(1, '/').append(below);
}

/** Behind `commands` and `responses`: a slot of a family. */
inline std::string slot(std::string_view family, size_t number) {
    return std::string(family).append(1, '/').append(std::to_string(number));
}

}  // namespace nxapi::topics

#endif
