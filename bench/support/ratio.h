/**
 * Benchmarks compare a piece of work with a floor that is measured in the same run:
 * the machine's speed falls out of the ratio.
 */
#ifndef BENCH_SUPPORT_RATIO_H
#define BENCH_SUPPORT_RATIO_H

#include <functional>

namespace bench {

/** Median processor time of each, seconds. What the thread waits for, and what else
 *  runs on the machine, does not count. */
struct Medians {
    double work;
    double floor;
    double ratio() const { return work / floor; }
};

/** Runs both in turns, `rounds` times after a warm-up; `prepare` runs unmeasured
 *  before each round. */
Medians measure(
    const std::function<void()> &work, const std::function<void()> &floor,
    const std::function<void()> &prepare = [] {}, int rounds = 300);

}  // namespace bench

#endif
