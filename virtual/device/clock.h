/**
 * Virtual time of one device, and the threads of the agent that live in it.
 *
 * A clock outlives its device: a thread that still sleeps when the device is let
 * go of stays where it is for ever, so nothing of it is torn out from under it.
 */
#ifndef VIRTUAL_DEVICE_CLOCK_H
#define VIRTUAL_DEVICE_CLOCK_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "virtual/vap.h"

namespace vap {

class Clock {
  public:
    explicit Clock(const Options &options);

    int64_t uptime_ns();
    int64_t now_ns();            /**< since the epoch */
    void set_now_ns(int64_t ns); /**< since the epoch; uptime goes on unchanged */

    /** The interposed sleep of any thread. */
    void sleep_ns(int64_t ns);

    /** Threads of the agent: `admit` when one is created, by its creator; `enter`
     *  on the new thread before it does anything; `leave` at its end. Under a
     *  manual clock a thread starts when the clock is next moved or settled, so
     *  that one thread runs at a time, always in the same order. */
    struct Sleeper;
    Sleeper *admit();
    void enter(Sleeper *self);
    void leave();
    void dismiss(Sleeper *self); /**< the thread could not be created after all */

    /** Other work that `settle` and `advance` wait for. */
    void begin_work();
    void end_work();

    void advance_ns(int64_t ns);

    /** Ends the device's time: waits until no work is left, and from now on every
     *  sleep lasts for ever. */
    void retire();

    /** Is the calling thread the device's main one (which opened it)? */
    bool on_main_thread() const { return std::this_thread::get_id() == main_; }

  private:
    using Lock = std::unique_lock<std::mutex>;

    int64_t real_uptime_ns() const;
    Sleeper *queue(int64_t deadline, bool counted);
    void await(Lock &lock, Sleeper *self);
    void sleep_real(Lock &lock, int64_t ns);
    void wait_until_quiet(Lock &lock);
    void stay_for_ever(Lock &lock);

    const Time mode_;
    const double speed_;
    const std::thread::id main_ = std::this_thread::get_id();
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();

    std::mutex mutex_;
    std::condition_variable changed_; /**< a sleeper is woken, or the clock retired */
    std::condition_variable quiet_;   /**< a piece of work has ended */
    int64_t epoch_ns_;                /**< the device's clock at uptime 0 */
    int64_t manual_ns_ = 0;           /**< uptime of a manual clock */
    int working_ = 0;                 /**< pieces of work under way */
    bool retired_ = false;
    std::list<Sleeper> sleepers_; /**< by deadline, then by who came first */
};

/** One thread that waits for its moment on a manual clock. */
struct Clock::Sleeper {
    int64_t deadline;
    bool counted; /**< becomes work when woken */
    bool woken = false;
};

/** The clock in which the calling thread counts as work; null for a thread that
 *  no device waits for. */
Clock *&thread_clock();

}  // namespace vap

#endif
