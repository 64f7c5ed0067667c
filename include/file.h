/**
 * Files and descriptors with one owner.
 */
#ifndef FILE_H
#define FILE_H

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

struct FileClose {
    void operator()(FILE *file) const { fclose(file); }
};

/** A stream that is closed with its owner. Open it with "re" or "we", so that no
 *  shell inherits it. */
using File = std::unique_ptr<FILE, FileClose>;

/** A descriptor that is closed with its owner; false while it holds none. */
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd &operator=(Fd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    ~Fd() { reset(); }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

#endif
