#include "virtual/ap/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "virtual/ap/device.h"

namespace vap {

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

int Descriptor::release() {
    return std::exchange(fd_, -1);
}

std::optional<std::string> read_file(const std::filesystem::path &path) {
    const Inside inside;
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        return std::nullopt;
    }
    std::string text;
    char block[16 * 1024];
    for (;;) {
        const ssize_t got = read(file.get(), block, sizeof block);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            return text;
        }
        text.append(block, static_cast<size_t>(got));
    }
}

bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t done = write(fd, bytes.data(), bytes.size());
        if (done < 0 && errno == EINTR) {
            continue;
        }
        if (done <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(done));
    }
    return true;
}

bool replace_file(const std::filesystem::path &path, std::string_view text, Lasting lasting) {
    const bool sync = lasting == Lasting::machine;
    const Inside inside;
    const std::filesystem::path fresh = path.string() + ".new";
    {
        const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (file.get() < 0) {
            return false;
        }
        if (!write_all(file.get(), text) || (sync && fsync(file.get()) != 0)) {
            unlink(fresh.c_str());
            return false;
        }
    }
    if (rename(fresh.c_str(), path.c_str()) != 0) {
        unlink(fresh.c_str());
        return false;
    }
    if (sync) {
        const Descriptor folder(
            open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        fsync(folder.get());
    }
    return true;
}

FileStamp file_stamp(const std::filesystem::path &path) {
    struct stat state = {};
    if (stat(path.c_str(), &state) != 0) {
        return {};
    }
    return {state.st_dev, state.st_ino, state.st_size,
            static_cast<int64_t>(state.st_mtim.tv_sec) * 1'000'000'000 + state.st_mtim.tv_nsec};
}

LocalAddress::LocalAddress(const std::filesystem::path &file) {
    const Inside inside;
    folder_ = Descriptor(open(file.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    address_.sun_family = AF_UNIX;
    snprintf(address_.sun_path, sizeof address_.sun_path, "/proc/self/fd/%d/%s", folder_.get(),
             file.filename().c_str());
}

FolderLock::FolderLock(const std::filesystem::path &folder) {
    const Inside inside;
    Descriptor file(open((folder / ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    while (file.get() >= 0 && flock(file.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            return;
        }
    }
    fd_ = std::move(file);
}

}  // namespace vap
