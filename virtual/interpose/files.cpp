/**
 * Files, processes and shell commands of the agent.
 */
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "virtual/device/caught.h"

using vap::Json;
using vap::text_arg;

namespace {

constexpr const char *counters_path = "/proc/rtl865x/asicCounter";

/** The file of the folder behind a device path, with its folder when something
 *  may be created there. */
std::filesystem::path file_behind(const char *path, bool creates) {
    std::filesystem::path file = vap::host_path(path);
    if (creates) {
        vap::make_folders(file.parent_path());
    }
    return file;
}

int flags_of(const char *mode) {
    const bool both = strchr(mode, '+') != nullptr;
    const int cloexec = strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
    switch (*mode) {
        case 'w':
            return (both ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC | cloexec;
        case 'a':
            return (both ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND | cloexec;
        default:
            return (both ? O_RDWR : O_RDONLY) | cloexec;
    }
}

/** Would this open bring a file into being or empty it? Only that is an effect;
 *  what is then written stands in the file. */
bool changes(const std::filesystem::path &file, int flags) {
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    return (writes && (flags & O_TRUNC) != 0) ||
           ((flags & O_CREAT) != 0 && access(file.c_str(), F_OK) != 0);
}

using Open = int(const char *, int, ...);
using Fopen = FILE *(const char *, const char *);

int open_file(Open *next, const void *caller, const char *path, int flags, mode_t mode) {
    if (vap::fails("open", caller)) {
        return -1;
    }
    const std::shared_ptr<vap::Machine> device = vap::caught(path);
    if (!device) {
        return next(path, flags, mode);
    }
    const vap::Inside inside;
    if (strcmp(path, counters_path) == 0) {
        return vap::open_counters(*device, flags);
    }
    const std::filesystem::path file = file_behind(path, (flags & O_CREAT) != 0);
    const bool effect = changes(file, flags);
    const int fd = next(file.c_str(), flags, mode);
    if (effect) {
        const int error = errno;
        vap::record("open", Json::array({path, flags, mode}), fd < 0 ? -1 : 0);
        errno = error;
    }
    return fd;
}

FILE *open_stream(Fopen *next, const void *caller, const char *path, const char *mode) {
    if (vap::fails("fopen", caller)) {
        return nullptr;
    }
    const std::shared_ptr<vap::Machine> device = vap::caught(path);
    if (!device) {
        return next(path, mode);
    }
    const vap::Inside inside;
    const int flags = flags_of(mode);
    if (strcmp(path, counters_path) == 0) {
        const int fd = vap::open_counters(*device, flags);
        return fd < 0 ? nullptr : fdopen(fd, mode);
    }
    const std::filesystem::path file = file_behind(path, (flags & O_CREAT) != 0);
    const bool effect = changes(file, flags);
    FILE *const stream = next(file.c_str(), mode);
    if (effect) {
        const int error = errno;
        vap::record("fopen", Json::array({path, mode}), stream == nullptr ? -1 : 0);
        errno = error;
    }
    return stream;
}

/** Does an `open` with these flags take a mode behind them? */
bool takes_mode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

/** Takes what was written to the counter file: the last "port <n>" counts. */
void select_port(vap::CounterFile &counters) {
    char text[256];
    ssize_t got = 0;
    while ((got = read(counters.selection.get(), text, sizeof text - 1)) > 0) {
        text[got] = '\0';
        for (const char *at = text; (at = strstr(at, "port ")) != nullptr; ++at) {
            std::from_chars(at + 5, text + got, counters.port);
        }
    }
}

}  // namespace

int vap::open_counters(Machine &device, int flags) {
    CounterFile &counters = device.counters;
    const std::lock_guard lock(counters.mutex);
    if (counters.writer.get() < 0) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            return -1;
        }
        counters.selection = Descriptor(ends[0]);
        counters.writer = Descriptor(ends[1]);
    }
    select_port(counters);
    if ((flags & O_ACCMODE) == O_WRONLY) {
        return fcntl(counters.writer.get(), F_DUPFD_CLOEXEC, 0);
    }
    const std::string text = asic_counter_text(counters.port);
    const int fd = memfd_create("asicCounter", MFD_CLOEXEC);
    if (fd >= 0 && (!write_all(fd, text) || lseek(fd, 0, SEEK_SET) != 0)) {
        close(fd);
        return -1;
    }
    return fd;
}

extern "C" {

int open(const char *path, int flags, ...) {
    static auto *const next = vap::real<Open>("open");
    va_list args;
    va_start(args, flags);
    const mode_t mode = takes_mode(flags) ? va_arg(args, mode_t) : 0;
    va_end(args);
    return open_file(next, VAP_CALLER, path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    static auto *const next = vap::real<Open>("open64");
    va_list args;
    va_start(args, flags);
    const mode_t mode = takes_mode(flags) ? va_arg(args, mode_t) : 0;
    va_end(args);
    return open_file(next, VAP_CALLER, path, flags, mode);
}

FILE *fopen(const char *path, const char *mode) {
    static auto *const next = vap::real<Fopen>("fopen");
    return open_stream(next, VAP_CALLER, path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
    static auto *const next = vap::real<Fopen>("fopen64");
    return open_stream(next, VAP_CALLER, path, mode);
}

int unlink(const char *path) noexcept {
    static auto *const next = vap::real<int(const char *)>("unlink");
    if (vap::fails("unlink", VAP_CALLER)) {
        return -1;
    }
    if (!vap::caught(path)) {
        return next(path);
    }
    const int result = next(file_behind(path, false).c_str());
    const int error = errno;
    vap::record("unlink", Json::array({path}), result);
    errno = error;
    return result;
}

FILE *popen(const char *command, const char *mode) {
    static auto *const next = vap::real<Fopen>("popen");
    const std::shared_ptr<vap::Machine> device = vap::caught();
    if (!device || command == nullptr || !vap::from_agent(VAP_CALLER)) {
        return next(command, mode);
    }
    FILE *stream = nullptr;
    if (!vap::fails("popen", VAP_CALLER)) {
        const vap::Inside inside;
        const std::optional<std::string> text = vap::shell_command(command);
        stream = next(text ? text->c_str() : ":", mode);
    }
    const int error = errno;
    vap::record("popen", Json::array({text_arg(command), mode}), stream == nullptr ? -1 : 0);
    errno = error;
    return stream;
}

int kill(pid_t process, int signal) noexcept {
    static auto *const next = vap::real<int(pid_t, int)>("kill");
    const std::shared_ptr<vap::Machine> device = vap::caught();
    // A thread of the agent that outlives its device must not reach the machine's init.
    const bool to_all = process == 1 || process == -1;
    if (process > 1 || (!device && !to_all)) {
        return next(process, signal);
    }
    const bool failed = !device || process != 1 || vap::fails("kill", VAP_CALLER) ||
                        (signal == SIGTERM && !vap::restart_device(false));
    vap::record("kill", Json::array({process, signal}), failed ? -1 : 0);
    if (failed) {
        errno = EPERM;
        return -1;
    }
    return 0;
}

}  // extern "C"
