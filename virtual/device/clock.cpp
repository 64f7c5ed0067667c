#include "virtual/device/clock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace vap {
namespace {

/** Real time that a thread may take between two sleeps; a test whose thread
 *  waits for something that never comes ends with a message, not a hang. */
constexpr std::chrono::seconds patience{60};

/** A century: where a device whose time races comes to rest, and the longest sleep of
 *  one whose time crawls. */
constexpr double longest_uptime_ns = 3.2e18;

int64_t real_epoch_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Clock *&thread_clock() {
    thread_local Clock *clock = nullptr;
    return clock;
}

Clock::Clock(const Options &options)
    : mode_(options.time),
      speed_(options.speed),
      epoch_ns_(options.time == Time::manual ? options.epoch * 1'000'000'000 : real_epoch_ns()) {}

int64_t Clock::real_uptime_ns() const {
    const std::chrono::duration<double, std::nano> real = std::chrono::steady_clock::now() - start_;
    return static_cast<int64_t>(std::min(real.count() * speed_, longest_uptime_ns));
}

int64_t Clock::uptime_ns() {
    if (mode_ == Time::real) {
        return real_uptime_ns();
    }
    const Lock lock(mutex_);
    return manual_ns_;
}

int64_t Clock::now_ns() {
    const int64_t uptime = uptime_ns();
    const Lock lock(mutex_);
    return epoch_ns_ + uptime;
}

void Clock::set_now_ns(int64_t ns) {
    const int64_t uptime = uptime_ns();
    const Lock lock(mutex_);
    epoch_ns_ = ns - uptime;
}

void Clock::stay_for_ever(Lock &lock) {
    changed_.wait(lock, [] { return false; });
}

Clock::Sleeper *Clock::queue(int64_t deadline, bool counted) {
    const auto later =
        std::ranges::find_if(sleepers_, [&](const Sleeper &s) { return s.deadline > deadline; });
    return &*sleepers_.insert(later, Sleeper{deadline, counted});
}

void Clock::await(Lock &lock, Sleeper *self) {
    changed_.wait(lock, [&] { return self->woken; });
    sleepers_.remove_if([&](const Sleeper &s) { return &s == self; });
}

void Clock::sleep_ns(int64_t ns) {
    if (mode_ == Time::manual && on_main_thread()) {
        advance_ns(ns);
        return;
    }
    Lock lock(mutex_);
    const bool counted = thread_clock() == this;
    if (counted) {
        --working_;
        quiet_.notify_all();
    }
    if (retired_) {
        stay_for_ever(lock);
    }
    if (mode_ == Time::manual) {
        await(lock, queue(manual_ns_ + std::max<int64_t>(ns, 0), counted));
    } else {
        sleep_real(lock, ns);
        working_ += counted ? 1 : 0;
    }
}

void Clock::sleep_real(Lock &lock, int64_t ns) {
    const std::chrono::duration<double, std::nano> real(
        std::min(static_cast<double>(ns) / speed_, longest_uptime_ns));
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(real);
    changed_.wait_until(lock, deadline, [&] { return retired_; });
    if (retired_) {
        stay_for_ever(lock);
    }
}

void Clock::wait_until_quiet(Lock &lock) {
    if (!quiet_.wait_for(lock, patience, [&] { return working_ == 0; })) {
        fprintf(stderr, "vap: %d thread(s) of the agent neither slept nor ended within %d s\n",
                working_, static_cast<int>(patience.count()));
        abort();
    }
}

void Clock::advance_ns(int64_t ns) {
    Lock lock(mutex_);
    const int64_t target = manual_ns_ + std::max<int64_t>(ns, 0);
    for (;;) {
        wait_until_quiet(lock);
        const auto next =
            std::ranges::find_if(sleepers_, [](const Sleeper &s) { return !s.woken; });
        if (next == sleepers_.end() || next->deadline > target) {
            break;
        }
        manual_ns_ = std::max(manual_ns_, next->deadline);
        next->woken = true;
        working_ += next->counted ? 1 : 0;
        changed_.notify_all();
    }
    manual_ns_ = std::max(manual_ns_, target);
}

Clock::Sleeper *Clock::admit() {
    const Lock lock(mutex_);
    if (mode_ == Time::manual) {
        return queue(manual_ns_, true);
    }
    ++working_;
    return nullptr;
}

void Clock::enter(Sleeper *self) {
    thread_clock() = this;
    if (self != nullptr) {
        Lock lock(mutex_);
        await(lock, self);
    }
}

void Clock::dismiss(Sleeper *self) {
    if (self == nullptr) {
        end_work();
        return;
    }
    const Lock lock(mutex_);
    sleepers_.remove_if([&](const Sleeper &s) { return &s == self; });
}

void Clock::leave() {
    thread_clock() = nullptr;
    end_work();
}

void Clock::begin_work() {
    const Lock lock(mutex_);
    ++working_;
}

void Clock::end_work() {
    const Lock lock(mutex_);
    --working_;
    quiet_.notify_all();
}

void Clock::retire() {
    Lock lock(mutex_);
    retired_ = true;
    changed_.notify_all();
    wait_until_quiet(lock);
}

}  // namespace vap
