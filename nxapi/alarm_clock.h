/**
 * A descriptor that becomes readable after a while.
 */
#ifndef NXAPI_ALARM_CLOCK_H
#define NXAPI_ALARM_CLOCK_H

#include <sys/timerfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

namespace nxapi {

class AlarmClock {
  public:
    AlarmClock() : fd_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}
    AlarmClock(const AlarmClock &) = delete;
    AlarmClock &operator=(const AlarmClock &) = delete;
    ~AlarmClock() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    /** Readable once the time of `set` is over, until `clear`; -1 when the system has
     *  none left. */
    int fd() const { return fd_; }

    /** Less than a second. */
    void set(std::chrono::milliseconds left) const {
        const auto ns = static_cast<long>(std::chrono::nanoseconds(left).count());
        const itimerspec once{{}, {0, ns}};
        timerfd_settime(fd_, 0, &once, nullptr);
    }

    void clear() const {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = read(fd_, &count, sizeof(count));
    }

  private:
    int fd_;
};

}  // namespace nxapi

#endif
