#include "virtual/folder/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "virtual/inside.h"

namespace vap {
namespace {

Descriptor open_journal(const std::filesystem::path &file) {
    const Inside inside;
    return Descriptor(open(file.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, private_file));
}

/** Cuts off what stands behind the last line end, which a crash has left; false when
 *  it cannot. */
bool drop_torn_line(int fd) {
    const off_t end = lseek(fd, 0, SEEK_END);
    off_t whole = end;
    for (char last = 0; whole > 0 && pread(fd, &last, 1, whole - 1) == 1 && last != '\n';) {
        --whole;
    }
    return whole == end || ftruncate(fd, whole) == 0;
}

}  // namespace

Journal::Journal(const std::filesystem::path &folder, size_t most_bytes)
    : file_(folder / "journal.jsonl"),
      former_(file_.string() + ".1"),
      most_bytes_(most_bytes),
      fd_(open_journal(file_)) {
    if (fd_.get() < 0) {
        throw std::runtime_error("cannot write " + file_.string() + ": " + strerror(errno));
    }
    torn_ = !drop_torn_line(fd_.get());
}

void Journal::rotate() {
    if (rename(file_.c_str(), former_.c_str()) != 0) {
        return;  // it grows on
    }
    Descriptor fresh = open_journal(file_);
    if (fresh.get() >= 0) {
        fd_ = std::move(fresh);
    }
}

bool Journal::write_whole(std::string_view text) {
    off_t end = lseek(fd_.get(), 0, SEEK_END);
    if (end > 0 && static_cast<size_t>(end) + text.size() > most_bytes_) {
        rotate();
        end = lseek(fd_.get(), 0, SEEK_END);
    }
    if ((!torn_ || write_all(fd_.get(), "\n")) && write_all(fd_.get(), text)) {
        torn_ = false;
        return true;
    }
    const int error = errno;
    torn_ = ftruncate(fd_.get(), end) != 0 || torn_;
    errno = error;
    return false;
}

void Journal::append(const Json &line) {
    const std::string text = line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    const std::lock_guard lock(mutex_);
    if (!write_whole(text)) {
        if (left_out_++ == 0) {
            fprintf(stderr, "vap: cannot write %s: %s; it leaves out what happens\n", file_.c_str(),
                    strerror(errno));
        }
    } else if (left_out_ > 0) {
        fprintf(stderr, "vap: %s goes on, %d lines were left out\n", file_.c_str(), left_out_);
        left_out_ = 0;
    }
}

std::vector<Json> Journal::lines() const {
    const std::lock_guard lock(mutex_);
    std::vector<Json> lines;
    std::istringstream text(read_file(former_).value_or("") + read_file(file_).value_or(""));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(Json::parse(line));
    }
    return lines;
}

void Journal::clear() {
    const std::lock_guard lock(mutex_);
    std::error_code ignored;
    std::filesystem::remove(former_, ignored);
    if (ftruncate(fd_.get(), 0) != 0) {
        throw std::runtime_error("cannot empty " + file_.string());
    }
}

}  // namespace vap
