#include "virtual/folder/values.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/apmib.h"

namespace vap {
namespace {

struct Escape {
    char plain;
    char letter;
};
constexpr Escape escapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

std::string escaped(std::string_view value) {
    std::string text;
    for (const char c : value) {
        const auto row = std::ranges::find(escapes, c, &Escape::plain);
        if (row == std::end(escapes)) {
            text += c;
        } else {
            text += {'\\', row->letter};
        }
    }
    return text;
}

std::optional<std::string> unescaped(std::string_view text) {
    std::string value;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            value += text[i];
            continue;
        }
        if (++i == text.size()) {
            return std::nullopt;
        }
        const auto row = std::ranges::find(escapes, text[i], &Escape::letter);
        if (row == std::end(escapes)) {
            return std::nullopt;
        }
        value += row->plain;
    }
    return value;
}

std::string longer_than(const char *what, size_t most) {
    return std::string(what) + " longer than " + std::to_string(most) + " bytes";
}

/** What keeps the store from holding a key, a value; "" for nothing. */
std::string key_problem(std::string_view key) {
    const auto stops = [](char c) {
        return c == '=' || static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
    };
    if (key.empty()) {
        return "no key";
    }
    if (key.size() >= APMIB_KEY_MAX) {
        return longer_than("a key", APMIB_KEY_MAX - 1);
    }
    if (std::ranges::any_of(key, stops)) {
        return "a key with a blank or a control character";
    }
    return valid_text(key) ? "" : "a key that is not UTF-8";
}

std::string value_problem(std::string_view value) {
    if (value.size() >= APMIB_VALUE_MAX) {
        return longer_than("a value", APMIB_VALUE_MAX - 1);
    }
    return valid_text(value) ? "" : "a value that is not UTF-8 text";
}

/** Adds a line's value; returns what is wrong with the line, "" for nothing. */
std::string parse_line(std::string_view line, Values &values) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return "no \"key=value\"";
    }
    if (line.find('\r') != std::string_view::npos) {
        return "a carriage return that is not written \"\\r\"";
    }
    const std::string_view key = line.substr(0, equals);
    std::optional<std::string> value = unescaped(line.substr(equals + 1));
    if (!value) {
        return "a backslash that begins none of \"\\\\\", \"\\n\" and \"\\r\"";
    }
    std::string problem = key_problem(key);
    if (problem.empty()) {
        problem = value_problem(*value);
    }
    if (problem.empty()) {
        values.insert_or_assign(std::string(key), *std::move(value));
    }
    return problem;
}

}  // namespace

bool valid_text(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return false;
    }
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception &) {
        return false;  // not UTF-8
    }
}

bool valid_key(std::string_view key) {
    return key_problem(key).empty();
}

bool valid_value(std::string_view value) {
    return value_problem(value).empty();
}

std::string print_values(const Values &values) {
    std::string text;
    for (const auto &[key, value] : values) {
        text += key + "=" + escaped(value) + "\n";
    }
    return text;
}

std::optional<Values> parse_values(std::string_view text, std::string *problem) {
    Values values;
    for (int line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string wrong = parse_line(text.substr(0, end), values);
        if (!wrong.empty()) {
            if (problem != nullptr) {
                *problem = "line " + std::to_string(line) + ": " + wrong;
            }
            return std::nullopt;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return values;
}

}  // namespace vap
