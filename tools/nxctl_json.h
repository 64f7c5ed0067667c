/**
 * JSON from outside, which is never trusted.
 */
#ifndef TOOLS_NXCTL_JSON_H
#define TOOLS_NXCTL_JSON_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace nxctl {

using Json = nlohmann::ordered_json;

/** The text as JSON; none when it is none, or when it is nested more than 64 deep: what
 *  walks through it may then call itself. */
std::optional<Json> parse_json(std::string_view text);

/** A member of an object; null for a member that is missing, or of what is no object. */
const Json *member(const Json &object, const std::string &name);

/** A member that is a whole number; none for any other. */
std::optional<int64_t> whole_number(const Json &object, const std::string &name);

/** A member that is a number; none for any other. */
std::optional<double> number(const Json &object, const std::string &name);

/** A member that is a text; none for any other. */
std::optional<std::string> text(const Json &object, const std::string &name);

/** One line of plain ASCII, followed by a line end: nothing in it moves a cursor. */
std::string json_line(const Json &value);

}  // namespace nxctl

#endif
