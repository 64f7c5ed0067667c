/**
 * A descriptor through which one thread wakes another.
 */
#ifndef NXAPI_EVENT_H
#define NXAPI_EVENT_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace nxapi {

class Event {
  public:
    Event() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;
    ~Event() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    /** Readable from `signal` to `clear`; -1 when the system has none left. */
    int fd() const { return fd_; }

    void signal() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(fd_, &one, sizeof(one));
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
