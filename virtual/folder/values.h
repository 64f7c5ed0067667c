/**
 * The text form of a configuration: "key=value" a line, with "\\", "\n" and
 * "\r" written for a backslash and line ends inside a value.
 */
#ifndef VIRTUAL_FOLDER_VALUES_H
#define VIRTUAL_FOLDER_VALUES_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vap {

using Values = std::map<std::string, std::string, std::less<>>;

/** May the store hold this key, this value? */
bool valid_key(std::string_view key);
bool valid_value(std::string_view value);

/** Is it whole UTF-8 without NUL? */
bool valid_text(std::string_view text);

/** All lines, sorted by key. */
std::string print_values(const Values &values);

/** Reads the text form; nothing when a line is malformed, then `problem` receives the
 *  line's number, from 1, and what is wrong with it, but no value. */
std::optional<Values> parse_values(std::string_view text, std::string *problem = nullptr);

}  // namespace vap

#endif
