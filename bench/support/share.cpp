#include "bench/support/share.h"

#include <execinfo.h>
#include <link.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <span>
#include <stdexcept>

namespace bench {
namespace {

constexpr long interval_ns = 50'000;
constexpr std::chrono::milliseconds duration{500};

struct Watch {
    uintptr_t address = 0;
    uintptr_t begin = 0; /**< the library's place in memory */
    uintptr_t end = 0;
    long looks = 0;
    long inside = 0;
} watch;

int find_library(dl_phdr_info *library, size_t, void *) {
    uintptr_t end = library->dlpi_addr;
    for (const auto &part : std::span(library->dlpi_phdr, library->dlpi_phnum)) {
        if (part.p_type == PT_LOAD) {
            end = std::max(end, library->dlpi_addr + part.p_vaddr + part.p_memsz);
        }
    }
    if (watch.address < library->dlpi_addr || watch.address >= end) {
        return 0;
    }
    watch.begin = library->dlpi_addr;
    watch.end = end;
    return 1;
}

void look(int) {
    std::array<void *, 64> frames;
    const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
    ++watch.looks;
    for (int i = 0; i < depth; ++i) {
        const auto place = reinterpret_cast<uintptr_t>(frames[static_cast<size_t>(i)]);
        if (place >= watch.begin && place < watch.end) {
            ++watch.inside;
            return;
        }
    }
}

/** Interrupts this thread at every interval while it lives. */
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = look;
        action.sa_flags = SA_RESTART;
        sigaction(SIGPROF, &action, nullptr);
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGPROF;
        event._sigev_un._tid = gettid();
        const itimerspec interval{{0, interval_ns}, {0, interval_ns}};
        if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0 ||
            timer_settime(timer_, 0, &interval, nullptr) != 0) {
            throw std::runtime_error("no timer");
        }
    }
    ~Interruptions() { timer_delete(timer_); }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

  private:
    timer_t timer_{};
};

}  // namespace

double share_of_library(const void *address, const std::function<void()> &work) {
    watch = {.address = reinterpret_cast<uintptr_t>(address)};
    dl_iterate_phdr(find_library, nullptr);
    std::array<void *, 1> first;
    backtrace(first.data(), 1);  // loads what it needs before a signal asks for it
    const Interruptions interruptions;
    using Clock = std::chrono::steady_clock;
    for (const auto end = Clock::now() + duration; Clock::now() < end;) {
        work();
    }
    return static_cast<double>(watch.inside) / static_cast<double>(std::max(watch.looks, 1L));
}

}  // namespace bench
