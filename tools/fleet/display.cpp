#include "tools/fleet/display.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "tools/text.h"

namespace fleet {
namespace {

using namespace std::chrono_literals;

constexpr auto redraw = 500ms;
constexpr auto line_every = 10s;
constexpr size_t width = 79; /**< columns: a full line would wrap on some terminals */

[[gnu::format(printf, 1, 2)]] std::string text(const char *format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

std::string clock_text(double seconds) {
    const int whole = static_cast<int>(seconds);
    return whole < 3600 ? text("%02d:%02d", whole / 60, whole % 60)
                        : text("%d:%02d:%02d", whole / 3600, whole / 60 % 60, whole % 60);
}

CallFigures sum_of(const Figures &figures) {
    CallFigures all;
    for (const CallFigures &call : figures.calls) {
        all.sent += call.sent;
        all.answered += call.answered;
        all.late += call.late;
        all.missing += call.missing;
        all.times.merge(call.times);
    }
    return all;
}

unsigned long long big(uint64_t number) {
    return number;
}

}  // namespace

Display::Display(const Figures &figures)
    : figures_(figures), terminal_(isatty(STDOUT_FILENO) == 1), last_(Clock::now()) {}

Display::~Display() {
    clear();
}

void Display::clear() {
    if (drawn_ > 0) {
        printf("\033[%zuA\033[J", drawn_);
        fflush(stdout);
        drawn_ = 0;
    }
}

void Display::begin_step(const Standing &standing) {
    if (!terminal_) {
        printf("%s step %s\n", clock_text(standing.seconds).c_str(), standing.step.c_str());
        fflush(stdout);
    }
}

bool Display::due() const {
    return Clock::now() - last_ >= (terminal_ ? Clock::duration(redraw) : line_every);
}

void Display::show(const Standing &standing) {
    since_last_ = std::chrono::duration<double>(Clock::now() - last_).count();
    last_ = Clock::now();
    if (terminal_) {
        draw(lines(standing));
    } else {
        printf("%s\n", plain_line(standing).c_str());
        fflush(stdout);
    }
}

std::string Display::plain_line(const Standing &standing) const {
    const CallFigures calls = sum_of(figures_);
    return text(
        "%s %zu of %zu online, %zu starting, %llu restarts; calls %llu sent, %llu answered, "
        "%llu missing, p99 %.1f ms; processor %.0f %%",
        clock_text(standing.seconds).c_str(), standing.online, standing.wanted, standing.starting,
        big(figures_.restarts), big(calls.sent), big(calls.answered), big(calls.missing),
        calls.times.ms(0.99), standing.processor_percent);
}

double Display::rate(const std::string &what, uint64_t count) {
    uint64_t &before = counts_[what];
    const uint64_t more = count - before;
    before = count;
    return static_cast<double>(more) / since_last_;
}

std::vector<std::string> Display::lines(const Standing &standing) {
    const CallFigures calls = sum_of(figures_);
    const std::string end = standing.of_seconds > 0 ? " of " + clock_text(standing.of_seconds) : "";
    std::vector<std::string> all;
    all.push_back(tools::shown(figures_.scenario) + "  " + clock_text(standing.seconds) + end +
                  "  step " + standing.step);
    all.push_back(
        text("devices   online %zu of %zu, starting %zu, off %zu; restarts %llu, ended %zu",
             standing.online, standing.wanted, standing.starting,
             standing.devices - standing.wanted, big(figures_.restarts), figures_.ended.size()));
    all.push_back(text("arrivals  registrations %.0f/s, roams %llu",
                       rate("registrations", figures_.registrations), big(figures_.roams)));
    all.push_back(
        text("calls     sent %llu, answered %llu, late %llu, missing %llu; p50 %.1f, p99 %.1f ms",
             big(calls.sent), big(calls.answered), big(calls.late), big(calls.missing),
             calls.times.ms(0.5), calls.times.ms(0.99)));
    std::string uploads = "uploads/s";
    for (const auto &[kind, count] : figures_.uploads) {
        uploads += text(" %s %.1f", tools::shown(kind).c_str(), rate("upload " + kind, count));
    }
    all.push_back(uploads);
    all.push_back(
        text("machine   processor %.0f %% of a core, memory of one %.0f KiB, of all %.0f MiB",
             standing.processor_percent, figures_.memory_of_one_kib, figures_.memory_kib / 1024));
    for (const std::string &trouble : standing.troubles) {
        all.push_back("trouble   " + tools::shown(trouble));
    }
    return all;
}

void Display::draw(const std::vector<std::string> &lines) {
    if (drawn_ > 0) {
        printf("\033[%zuA", drawn_);
    }
    for (const std::string &line : lines) {
        printf("%s\033[K\n",
               (tools::columns(line) > width ? tools::cell(line, width) : line).c_str());
    }
    printf("\033[J");
    fflush(stdout);
    drawn_ = lines.size();
}

}  // namespace fleet
