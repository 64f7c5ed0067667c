#include "report/decimal.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "json.h"

namespace {

using DecimalText = std::array<char, 64>;  // a sum of 64-bit counters has 23 characters

/** The number times 100, halves rounded to even as printf does. */
uint64_t rounded_hundredths(double number) {
    const double hundredths = number * 100;
    const auto whole = static_cast<uint64_t>(hundredths);
    const double rest = hundredths - static_cast<double>(whole);
    return rest > 0.5 || (rest == 0.5 && whole % 2 == 1) ? whole + 1 : whole;
}

/** Four of these for each station: printf's own conversion would cost more than all
 *  the rest of the report. The product above is exact for a float and for a 32-bit
 *  count of 1024ths, so that the text is the same. */
DecimalText decimal_text(double number) {
    DecimalText text;
    if (std::signbit(number) || !(number < 1e15)) {
        snprintf(text.data(), text.size(), "%.2f", number);
        return text;
    }
    const uint64_t hundredths = rounded_hundredths(number);
    char *end = std::to_chars(text.data(), text.data() + 32, hundredths / 100).ptr;
    *end++ = '.';
    *end++ = static_cast<char>('0' + hundredths / 10 % 10);
    *end++ = static_cast<char>('0' + hundredths % 10);
    *end = '\0';
    return text;
}

}  // namespace

void json_add_decimal(cJSON *object, JsonKey key, double number) {
    json_add_string(object, key, decimal_text(number).data());
}
