/**
 * Where time goes, by looking in on the work again and again.
 */
#ifndef BENCH_SUPPORT_SHARE_H
#define BENCH_SUPPORT_SHARE_H

#include <functional>

namespace bench {

/** Share of the work's time, 0 to 1, in which a function of the shared library at
 *  `address` (of any function in it) is running, or has called what is running. Runs
 *  the work again and again on the calling thread, for half a second. */
double share_of_library(const void *address, const std::function<void()> &work);

}  // namespace bench

#endif
