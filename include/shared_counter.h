/**
 * 64-bit counts that threads share.
 */
#ifndef SHARED_COUNTER_H
#define SHARED_COUNTER_H

#include <atomic>
#include <cstdint>

/** Two relaxed 32-bit halves, since a 32-bit device has no 64-bit atomics. A
 *  reader beside a writer may see one half of each count. */
class SharedCounter {
  public:
    uint64_t load() const {
        return uint64_t{high_.load(std::memory_order_relaxed)} << 32 |
               low_.load(std::memory_order_relaxed);
    }
    void store(uint64_t count) {
        high_.store(static_cast<uint32_t>(count >> 32), std::memory_order_relaxed);
        low_.store(static_cast<uint32_t>(count), std::memory_order_relaxed);
    }

  private:
    std::atomic<uint32_t> high_{0};
    std::atomic<uint32_t> low_{0};
};

#endif
