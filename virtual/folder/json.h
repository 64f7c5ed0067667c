/**
 * JSON from outside: files that a person or another program may have written.
 */
#ifndef VIRTUAL_FOLDER_JSON_H
#define VIRTUAL_FOLDER_JSON_H

#include <climits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

namespace vap {

/** JSON with its members in the order in which they were written. */
using Json = nlohmann::ordered_json;

/** Parses a text; throws std::runtime_error with a sentence when it is no JSON, or
 *  nested deeper than what walks through it can bear. */
Json parse_json(std::string_view text);

/** Can a file hold every number in it? */
bool all_finite(const Json &value);

/** A number from `least` to `most`; nothing for anything else. */
std::optional<double> number_of(const Json &value, double least, double most);

/** The same less its fraction, as an integer. */
std::optional<int> integer_of(const Json &value, int least = INT_MIN, int most = INT_MAX);

}  // namespace vap

#endif
