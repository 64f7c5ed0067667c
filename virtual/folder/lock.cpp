#include "virtual/folder/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "virtual/inside.h"

namespace vap {
namespace {

/** Number of the descriptor that holds a passed-on lock. */
constexpr const char *passed_lock = "VAP_RUN_LOCK";

Descriptor open_lock(const std::filesystem::path &file) {
    const Inside inside;
    return Descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, private_file));
}

/** Takes the lock of an open file unless somebody else holds it. */
bool take(int fd) {
    while (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

/** Who holds the lock of an open file, as far as the machine tells. */
std::string holder(int fd) {
    struct stat state = {};
    fstat(fd, &state);
    std::istringstream locks(read_file("/proc/locks").value_or(""));
    for (std::string line; std::getline(locks, line);) {
        int process = 0;
        unsigned device_major = 0, device_minor = 0;
        unsigned long long inode = 0;
        if (sscanf(line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%llu", &process, &device_major,
                   &device_minor, &inode) == 4 &&
            makedev(device_major, device_minor) == state.st_dev && inode == state.st_ino) {
            std::string name = read_file("/proc/" + std::to_string(process) + "/comm").value_or("");
            name = name.substr(0, name.find('\n'));
            return "process " + std::to_string(process) + (name.empty() ? "" : " (" + name + ")");
        }
    }
    return "another process";
}

/** The descriptor that was passed on to this process, if it is this file's. */
Descriptor passed_on(const std::filesystem::path &file) {
    const char *number = getenv(passed_lock);
    const int fd = number == nullptr ? -1 : static_cast<int>(strtol(number, nullptr, 10));
    struct stat own = {}, wanted = {};
    if (fd <= STDERR_FILENO || fstat(fd, &own) != 0 || stat(file.c_str(), &wanted) != 0 ||
        own.st_dev != wanted.st_dev || own.st_ino != wanted.st_ino) {
        return Descriptor();
    }
    unsetenv(passed_lock);
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    return Descriptor(fd);
}

}  // namespace

FolderLock::FolderLock(const std::filesystem::path &folder, std::chrono::milliseconds patience) {
    const std::filesystem::path file = folder / ".lock";
    const auto limit = std::chrono::steady_clock::now() + patience;
    Descriptor fd = open_lock(file);
    if (fd.get() < 0) {
        fprintf(stderr, "vap: cannot open %s: %s\n", file.c_str(), strerror(errno));
        return;
    }
    while (!take(fd.get())) {
        if (std::chrono::steady_clock::now() >= limit) {
            fprintf(stderr, "vap: nothing was saved: %s holds %s\n", holder(fd.get()).c_str(),
                    file.c_str());
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    fd_ = std::move(fd);
}

RunLock::RunLock(const std::filesystem::path &folder) {
    const std::filesystem::path file = folder / ".run.lock";
    fd_ = passed_on(file);
    if (fd_.get() < 0) {
        fd_ = open_lock(file);
    }
    if (fd_.get() < 0) {
        throw std::runtime_error("cannot open " + file.string() + ": " + strerror(errno));
    }
    if (!take(fd_.get())) {
        throw std::runtime_error(folder.string() + " runs already: " + holder(fd_.get()) +
                                 " holds " + file.string());
    }
}

void RunLock::pass_on() const {
    setenv(passed_lock, std::to_string(fd_.get()).c_str(), 1);
    fcntl(fd_.get(), F_SETFD, 0);
}

}  // namespace vap
