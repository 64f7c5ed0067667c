/**
 * Rates from byte counters.
 */
#ifndef COUNTER_H
#define COUNTER_H

#include <cstdint>

/** What a counter gained since it stood at `before`. One that fell back was
 *  restarted and gained all that it shows. */
constexpr uint64_t counter_gain(uint64_t now, uint64_t before) {
    return now < before ? now : now - before;
}

/** A gain for each second; an interval below one second counts as one. */
constexpr uint64_t gain_per_second(uint64_t gain, int32_t seconds) {
    return seconds < 1 ? gain : gain / static_cast<uint64_t>(seconds);
}

/** Bytes a second as kbit/s, in whole kibibytes: 1023 bytes are none. */
constexpr uint64_t kbit_per_second(uint64_t bytes_per_second) {
    return (bytes_per_second >> 10) * 8;
}

#endif
