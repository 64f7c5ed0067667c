#include "tools/text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <sstream>

namespace tools {
namespace {

constexpr size_t indent = 2;
constexpr size_t tab = 8;

struct Range {
    uint32_t first, last;
};

/** Characters that a terminal obeys or that show nothing themselves. */
constexpr std::array obeyed{
    Range{0x0000, 0x001f},    // C0 controls
    Range{0x007f, 0x009f},    // DEL, C1 controls
    Range{0x00ad, 0x00ad},    // soft hyphen
    Range{0x061c, 0x061c},    // direction mark
    Range{0x200b, 0x200f},    // zero width, direction marks
    Range{0x2028, 0x202e},    // line separators, directions
    Range{0x2060, 0x206f},    // invisible operators, directions
    Range{0xfeff, 0xfeff},    // byte order mark
    Range{0xfff9, 0xfffb},    // annotations
    Range{0xe0000, 0xe0fff},  // tags
};

/** A character of a text: its bytes, and its number unless they are no UTF-8. */
struct Character {
    std::string_view bytes;
    uint32_t code = 0;
    bool valid = false;
};

/** Bytes of the character that starts with this one; 0 when none does. */
size_t length_of(unsigned char first) {
    return first < 0x80                    ? 1
           : first >= 0xc2 && first < 0xe0 ? 2
           : first >= 0xe0 && first < 0xf0 ? 3
           : first >= 0xf0 && first < 0xf5 ? 4
                                           : 0;
}

Character first_of(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    const size_t length = length_of(first);
    const Character broken{text.substr(0, 1)};
    if (length == 0 || length > text.size()) {
        return broken;
    }
    uint32_t code = length == 1 ? first : first & (0x7fU >> length);
    for (const char byte : text.substr(1, length - 1)) {
        if ((static_cast<unsigned char>(byte) & 0xc0) != 0x80) {
            return broken;
        }
        code = (code << 6) | (static_cast<unsigned char>(byte) & 0x3f);
    }
    constexpr std::array<uint32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    if (code < least[length] || code > 0x10ffff || surrogate) {
        return broken;
    }
    return {text.substr(0, length), code, true};
}

bool is_obeyed(uint32_t code) {
    return std::ranges::any_of(
        obeyed, [=](const Range &range) { return code >= range.first && code <= range.last; });
}

/** What stands for a character on a terminal. */
std::string visible(const Character &character) {
    if (character.valid && !is_obeyed(character.code)) {
        return std::string(character.bytes);
    }
    const bool byte = !character.valid || character.code < 0x80;
    char text[16];
    snprintf(text, sizeof text, byte ? "\\x%02x" : "\\u%04x",
             byte ? static_cast<unsigned char>(character.bytes.front()) : character.code);
    return text;
}

template <typename Take>
void each_character(std::string_view text, Take take) {
    while (!text.empty()) {
        const Character character = first_of(text);
        take(character);
        text.remove_prefix(character.bytes.size());
    }
}

}  // namespace

std::string shown(std::string_view text, bool lines) {
    std::string out;
    out.reserve(text.size());
    each_character(text, [&](const Character &character) {
        const bool kept = lines && (character.code == '\n' || character.code == '\t');
        out += kept && character.valid ? std::string(character.bytes) : visible(character);
    });
    return out;
}

size_t columns(std::string_view text) {
    size_t count = 0;
    each_character(
        text, [&](const Character &character) { count += character.bytes.size() > 1 ? 2 : 1; });
    return count;
}

std::string cell(std::string_view text, size_t width) {
    constexpr std::string_view more = "...";
    const std::string whole = shown(text);
    if (const size_t used = columns(whole); used <= width) {
        return whole + std::string(width - used, ' ');
    }
    std::string cut;
    size_t used = 0;
    const size_t room = width - std::min(width, more.size());
    each_character(text, [&](const Character &character) {
        const std::string piece = visible(character);
        used += columns(piece);
        cut += used <= room ? piece : "";
    });
    cut += more;
    return cut.append(width - std::min(width, columns(cut)), ' ');
}

std::string indented(std::string_view text, size_t width) {
    std::string out(indent, ' ');
    size_t at = indent;
    const auto next_line = [&] {
        out.append(1, '\n').append(indent, ' ');
        at = indent;
    };
    each_character(text, [&](const Character &character) {
        if (character.code == '\n' && character.valid) {
            next_line();
            return;
        }
        const bool is_tab = character.code == '\t' && character.valid;
        const std::string piece = is_tab ? "\t" : visible(character);
        const size_t wide = is_tab ? tab - at % tab : columns(piece);
        if (width > indent && at > indent && at + wide > width) {
            next_line();
        }
        out += piece;
        at += wide;
    });
    return out + "\n";
}

std::string wrapped(const std::string &text, size_t width, size_t from) {
    std::istringstream words(text);
    std::string out;
    size_t at = from;
    for (std::string word; words >> word;) {
        if (at > from && at + 1 + word.size() > width) {
            out.append(1, '\n').append(from, ' ');
            at = from;
        }
        out += (at > from ? " " : "") + word;
        at += word.size() + (at > from ? 1 : 0);
    }
    return out;
}

}  // namespace tools
