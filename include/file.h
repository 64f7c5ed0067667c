/**
 * Files and descriptors with one owner.
 */
#ifndef FILE_H
#define FILE_H

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

struct FileClose {
    void operator()(FILE *file) const { fclose(file); }
};

/** A stream that is closed with its owner. Open it with "re" or "we", so that no
 *  shell inherits it. */
using File = std::unique_ptr<FILE, FileClose>;

/** Reads the next line, cut to fit and without its line end; what was cut comes as
 *  the line after. False at the end, with `line` empty. */
template <size_t N>
bool read_line(FILE *file, char (&line)[N]) {
    if (fgets(line, N, file) == nullptr) {
        line[0] = '\0';
        return false;
    }
    line[strcspn(line, "\n")] = '\0';
    return true;
}

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
