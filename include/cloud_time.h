/**
 * The time stamp that the cloud compares.
 */
#ifndef CLOUD_TIME_H
#define CLOUD_TIME_H

#include <cstdint>

/** The moment `now` (seconds since the epoch) less the device's offset from UTC.
 *  `zone` is the number of "sys.timezone", the offset in hours plus 12. The cloud
 *  keeps 32 bits. */
inline int cloud_time(int64_t now, int zone) {
    return static_cast<int32_t>(now + 43200 - int64_t{3600} * zone);
}

#endif
