/**
 * A descriptor through which one thread wakes another.
 */
#ifndef NXAPI_EVENT_H
#define NXAPI_EVENT_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace nxapi {

/** A descriptor with a count in it: readable while the count is not zero. */
class CountingFd {
  public:
    CountingFd(const CountingFd &) = delete;
    CountingFd &operator=(const CountingFd &) = delete;

    /** -1 when the system has none left. */
    int fd() const { return fd_; }

    void clear() const {
        uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = read(fd_, &count, sizeof(count));
    }

  protected:
    explicit CountingFd(int fd) : fd_(fd) {}
    ~CountingFd() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }

  private:
    const int fd_;
};

/** Readable from `signal` to `clear`. */
class Event : public CountingFd {
  public:
    Event() : CountingFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    void signal() const {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(fd(), &one, sizeof(one));
    }
};

}  // namespace nxapi

#endif
