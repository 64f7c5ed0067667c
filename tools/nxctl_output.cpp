#include "tools/nxctl_output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <limits>

#include "tools/cli.h"
#include "tools/nxctl_commands.h"
#include "tools/text.h"

namespace nxctl {
namespace {

struct UploadedFile {
    std::string name;
    size_t bytes;
};

UploadedFile file_of(const std::string &payload) {
    const size_t header = std::min(payload.size(), file_header);
    return {payload.substr(0, std::min(header, payload.find('\0'))), payload.size() - header};
}

std::string formatted(double seconds, const char *format) {
    constexpr double year_10000 = 253402300800;
    constexpr double last_of_clock = static_cast<double>(std::numeric_limits<time_t>::max());
    if (!(seconds >= 0 && seconds < std::min(year_10000, last_of_clock))) {
        return "?";
    }
    const auto moment = static_cast<time_t>(seconds);
    tm parts{};
    char text[64];
    std::strftime(text, sizeof text, format, gmtime_r(&moment, &parts));
    return text;
}

/** Columns of the terminal on a descriptor; 0 when there is none. */
size_t width_of(int fd) {
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

void print(const std::string &text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        if (errno == EPIPE) {
            std::signal(SIGPIPE, SIG_DFL);
            std::raise(SIGPIPE);
        }
        throw tools::Failure(tools::cannot("write", "standard output"));
    }
}

void complain(const std::string &sentence) {
    std::fprintf(stderr, "%snxctl: %s\n", isatty(STDERR_FILENO) != 0 ? "\r\x1b[K" : "",
                 tools::shown(sentence).c_str());
}

bool is_terminal() {
    return isatty(STDOUT_FILENO) != 0;
}

size_t terminal_width() {
    return width_of(STDOUT_FILENO);
}

std::string one_row(const std::string &text) {
    const size_t width = terminal_width();
    return width > 0 && tools::columns(text) > width ? tools::cell(text, width) : text;
}

std::string utc(double seconds) {
    const double milliseconds = std::floor(seconds * 1000 + 0.5);
    char fraction[16];
    std::snprintf(fraction, sizeof fraction, ".%03dZ",
                  static_cast<int>(std::fmod(std::max(milliseconds, 0.0), 1000)));
    const std::string text = formatted(milliseconds / 1000, "%Y-%m-%dT%H:%M:%S");
    return text == "?" ? text : text + fraction;
}

std::string utc_minutes(double seconds) {
    return formatted(seconds, "%Y-%m-%dT%H:%MZ");
}

std::string utc_now() {
    using namespace std::chrono;
    return utc(duration<double>(system_clock::now().time_since_epoch()).count());
}

void Progress::show(const std::string &line) {
    constexpr std::chrono::milliseconds pause{100};
    const auto now = std::chrono::steady_clock::now();
    if (isatty(STDERR_FILENO) != 0 && now >= shown_ + pause) {
        // A line that wraps could not be taken away, nor one that fills the last column.
        const size_t width = width_of(STDERR_FILENO);
        const bool fits = width == 0 || line.size() < width;
        std::fprintf(stderr, "\r%s\x1b[K",
                     fits ? line.c_str() : tools::cell(line, width - 1).c_str());
        shown_ = now;
        visible_ = true;
    }
}

void Progress::clear() {
    if (visible_) {
        std::fputs("\r\x1b[K", stderr);
        visible_ = false;
    }
}

Json upload_value(const std::string &kind, const std::string &payload) {
    const Format format = format_of(kind);
    if (format == Format::file) {
        const UploadedFile file = file_of(payload);
        return {{"name", file.name}, {"bytes", file.bytes}};
    }
    if (format == Format::json) {
        if (auto value = parse_json(payload)) {
            return *value;
        }
    }
    return payload;
}

std::string upload_text(const std::string &kind, const std::string &payload) {
    if (format_of(kind) == Format::file) {
        const UploadedFile file = file_of(payload);
        return tools::indented("\"" + file.name + "\", " + std::to_string(file.bytes) + " bytes");
    }
    return tools::indented(payload, terminal_width());
}

}  // namespace nxctl
