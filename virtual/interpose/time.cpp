/**
 * Time and threads of the agent.
 */
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "virtual/device/caught.h"

namespace {

using vap::Json;

/** Latest time that the clock can be set to, seconds: nanoseconds still fit behind a
 *  century of uptime. */
constexpr int64_t latest = 5'000'000'000;

/** What a new thread of the agent runs, and the clock that waits for it. */
struct Start {
    void *(*body)(void *);
    void *argument;
    vap::Clock *clock;
    vap::Clock::Sleeper *place;
};

/** Ends the thread's work also when it ends by `pthread_exit`. */
struct Leave {
    vap::Clock *clock;
    ~Leave() { clock->leave(); }
};

/** Sleeps in the device's time; false when the call is not the agent's. No hold
 *  on the device is kept meanwhile, since a sleep may outlast it. */
bool sleep_virtually(const void *caller, int64_t ns) {
    if (!vap::from_agent(caller)) {
        return false;
    }
    vap::Clock *clock = vap::thread_clock();
    if (const std::shared_ptr<vap::Machine> device = vap::caught(); clock == nullptr && device) {
        clock = &device->clock;
    }
    if (vap::inside() || clock == nullptr) {
        return false;
    }
    clock->sleep_ns(ns);
    return true;
}

void *run_thread(void *data) {
    Start start = *static_cast<Start *>(data);
    delete static_cast<Start *>(data);
    start.clock->enter(start.place);
    const Leave leave{start.clock};
    return start.body(start.argument);
}

}  // namespace

extern "C" {

time_t time(time_t *out) noexcept {
    static auto *const next = vap::real<time_t(time_t *)>("time");
    if (!vap::from_agent(VAP_CALLER)) {
        return next(out);
    }
    const std::shared_ptr<vap::Machine> device = vap::caught();
    if (!device) {
        return next(out);
    }
    const auto now = static_cast<time_t>(device->clock.now_ns() / 1'000'000'000);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

unsigned int sleep(unsigned int seconds) {
    static auto *const next = vap::real<unsigned int(unsigned int)>("sleep");
    if (!sleep_virtually(VAP_CALLER, static_cast<int64_t>(seconds) * 1'000'000'000)) {
        return next(seconds);
    }
    return 0;
}

int usleep(useconds_t microseconds) {
    static auto *const next = vap::real<int(useconds_t)>("usleep");
    if (!sleep_virtually(VAP_CALLER, static_cast<int64_t>(microseconds) * 1000)) {
        return next(microseconds);
    }
    return 0;
}

int settimeofday(const timeval *value, const struct timezone *zone) noexcept {
    static auto *const next =
        vap::real<int(const timeval *, const struct timezone *)>("settimeofday");
    const std::shared_ptr<vap::Machine> device = vap::caught();
    if (!device || value == nullptr) {
        return next(value, zone);
    }
    bool failed = vap::fails("settimeofday", VAP_CALLER);
    const int64_t seconds = value->tv_sec;
    if (!failed &&
        (seconds < 0 || seconds > latest || value->tv_usec < 0 || value->tv_usec >= 1'000'000)) {
        errno = EINVAL;
        failed = true;
    }
    if (!failed) {
        device->clock.set_now_ns(seconds * 1'000'000'000 +
                                 static_cast<int64_t>(value->tv_usec) * 1000);
    }
    vap::record("settimeofday", Json::array({value->tv_sec, value->tv_usec}), failed ? -1 : 0);
    return failed ? -1 : 0;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument) noexcept {
    using Create = int(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static auto *const next = vap::real<Create>("pthread_create");
    const std::shared_ptr<vap::Machine> device = vap::caught();
    if (!device || !vap::from_agent(VAP_CALLER)) {
        return next(thread, attributes, body, argument);
    }
    if (const std::optional<long> fault = vap::due_fault("pthread_create", EAGAIN)) {
        return static_cast<int>(*fault);
    }
    vap::Clock &clock = device->clock;
    auto *start = new Start{body, argument, &clock, clock.admit()};
    vap::Clock::Sleeper *const place = start->place;
    const int result = next(thread, attributes, run_thread, start);
    if (result != 0) {
        clock.dismiss(place);
        delete start;
    }
    return result;
}

}  // extern "C"
