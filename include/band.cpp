#include "band.h"

#include <charconv>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include "store.h"

namespace {

/** Puts a key together from its parts, cut where it is full. Keys are built by the
 *  hundred for one report: formatting would take longer than the look-up. */
Key joined(std::initializer_list<std::string_view> parts) {
    Key key;
    size_t length = 0;
    for (const std::string_view part : parts) {
        length += part.copy(key.text + length, sizeof key.text - 1 - length);
    }
    key.text[length] = '\0';
    return key;
}

}  // namespace

Key radio_key(const Band &band, const char *field) {
    return joined({band.radio_prefix, field});
}

Key ssid_key(const char *stem, int slot, const char *field) {
    char number[12];
    const char *end = std::to_chars(number, std::end(number), slot).ptr;
    return joined({stem, {number, end}, ".", field});
}

bool radio_enabled(const Band &band) {
    return store_int(radio_key(band, "enable").text) != 0;
}
