#include "controller/http/message.h"

#include <cctype>
#include <cstdio>
#include <string_view>

namespace http {
namespace {

int digit(char letter) {
    if (letter >= '0' && letter <= '9') {
        return letter - '0';
    }
    const char lower = static_cast<char>(letter | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/** Decodes "%20" and, in a query, "+"; none for what is no such text or holds a NUL. */
std::optional<std::string> decode(std::string_view text, bool is_query) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        char letter = text[i];
        if (letter == '%') {
            const int high = i + 2 < text.size() ? digit(text[i + 1]) : -1;
            const int low = high >= 0 ? digit(text[i + 2]) : -1;
            if (low < 0) {
                return std::nullopt;
            }
            letter = static_cast<char>(16 * high + low);
            i += 2;
        } else if (letter == '+' && is_query) {
            letter = ' ';
        }
        if (letter == '\0') {
            return std::nullopt;
        }
        out += letter;
    }
    return out;
}

}  // namespace

bool split_target(const std::string &target, Request &request) {
    const std::string_view whole = target;
    const size_t mark = whole.find('?');
    const auto path = decode(whole.substr(0, mark), false);
    if (!path || !path->starts_with('/')) {
        return false;
    }
    request.path = *path;
    std::string_view rest = mark == whole.npos ? "" : whole.substr(mark + 1);
    while (!rest.empty()) {
        const std::string_view pair = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        const size_t equals = pair.find('=');
        const auto name = decode(pair.substr(0, equals), true);
        const auto value = decode(equals == pair.npos ? "" : pair.substr(equals + 1), true);
        if (!name || !value) {
            return false;
        }
        request.query[*name] = *value;
    }
    return true;
}

std::string encode(const std::string &text) {
    std::string out;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) || std::string_view("-._~").find(letter) != std::string_view::npos) {
            out += letter;
        } else {
            char code[4];
            std::snprintf(code, sizeof code, "%%%02X", byte);
            out += code;
        }
    }
    return out;
}

std::string Request::cookie(const std::string &name) const {
    const std::string all = header("cookie");
    std::string_view rest = all;
    while (!rest.empty()) {
        std::string_view pair = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
        while (pair.starts_with(' ')) {
            pair.remove_prefix(1);
        }
        if (pair.starts_with(name) && pair.substr(name.size()).starts_with('=')) {
            return std::string(pair.substr(name.size() + 1));
        }
    }
    return {};
}

}  // namespace http
