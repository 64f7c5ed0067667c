#include "virtual/folder/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "virtual/inside.h"

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

namespace {

/** Writes a file that is not there yet, with the owner and mode of the one that it is
 *  to replace. */
bool write_new_file(const std::filesystem::path &fresh, const std::filesystem::path &old,
                    std::string_view text, bool sync, mode_t mode) {
    const Descriptor file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (file.get() < 0) {
        return false;
    }
    struct stat state = {};
    if (lstat(old.c_str(), &state) == 0 && S_ISREG(state.st_mode)) {
        // Root leaves a file to its owner; nobody else can, nor needs to.
        (void)!fchown(file.get(), state.st_uid, state.st_gid);
        if (fchmod(file.get(), state.st_mode & 07777) != 0) {
            return false;
        }
    }
    return write_all(file.get(), text) && (!sync || fsync(file.get()) == 0);
}

}  // namespace

bool replace_file(const std::filesystem::path &path, std::string_view text, Lasting lasting,
                  mode_t mode) {
    const bool sync = lasting == Lasting::machine;
    const Inside inside;
    const std::filesystem::path fresh = path.string() + ".new";
    unlink(fresh.c_str());  // left by a writer that was ended
    if (!write_new_file(fresh, path, text, sync, mode) ||
        rename(fresh.c_str(), path.c_str()) != 0) {
        const int error = errno;
        unlink(fresh.c_str());
        errno = error;
        return false;
    }
    if (sync) {
        const Descriptor folder(
            open(path.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        fsync(folder.get());
    }
    return true;
}

bool make_folders(const std::filesystem::path &folder) {
    const Inside inside;
    if (mkdir(folder.c_str(), private_folder) == 0) {
        return true;
    }
    if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
        return make_folders(folder.parent_path()) && mkdir(folder.c_str(), private_folder) == 0;
    }
    std::error_code error;
    return errno == EEXIST && std::filesystem::is_directory(folder, error);
}

void close_to_others(const std::filesystem::path &folder) {
    struct stat state = {};
    if (stat(folder.c_str(), &state) != 0 || (state.st_mode & S_IRWXO) == 0) {
        return;
    }
    const bool closed = chmod(folder.c_str(), state.st_mode & 07777 & ~S_IRWXO) == 0;
    fprintf(
        stderr, "vap: %s was open to all users of the machine %s%s\n", folder.c_str(),
        closed ? "and is now closed to others" : "and stays so: ", closed ? "" : strerror(errno));
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

}  // namespace vap
