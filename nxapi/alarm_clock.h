/**
 * A descriptor that becomes readable after a while.
 */
#ifndef NXAPI_ALARM_CLOCK_H
#define NXAPI_ALARM_CLOCK_H

#include <sys/timerfd.h>

#include <chrono>

#include "nxapi/event.h"

namespace nxapi {

/** Readable once the time of `set` is over, until `clear`. */
class AlarmClock : public CountingFd {
  public:
    AlarmClock() : CountingFd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}

    /** Less than a second. */
    void set(std::chrono::milliseconds left) const {
        const auto ns = static_cast<long>(std::chrono::nanoseconds(left).count());
        const itimerspec once{{}, {0, ns}};
        timerfd_settime(fd(), 0, &once, nullptr);
    }
};

}  // namespace nxapi

#endif
