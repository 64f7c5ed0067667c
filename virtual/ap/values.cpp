#include "virtual/ap/values.h"

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

bool parse_line(std::string_view line, Values &values) {
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || line.find('\r') != std::string_view::npos) {
        return false;
    }
    const std::string_view key = line.substr(0, equals);
    std::optional<std::string> value = unescaped(line.substr(equals + 1));
    if (!valid_key(key) || !value || !valid_value(*value)) {
        return false;
    }
    values.insert_or_assign(std::string(key), *std::move(value));
    return true;
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
    const auto stops = [](char c) {
        return c == '=' || static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
    };
    return !key.empty() && key.size() < APMIB_KEY_MAX && std::ranges::none_of(key, stops) &&
           valid_text(key);
}

bool valid_value(std::string_view value) {
    return value.size() < APMIB_VALUE_MAX && valid_text(value);
}

std::string print_values(const Values &values) {
    std::string text;
    for (const auto &[key, value] : values) {
        text += key + "=" + escaped(value) + "\n";
    }
    return text;
}

std::optional<Values> parse_values(std::string_view text, int *bad_line) {
    Values values;
    for (int line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size());
        if (!parse_line(text.substr(0, end), values)) {
            if (bad_line != nullptr) {
                *bad_line = line;
            }
            return std::nullopt;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return values;
}

}  // namespace vap
