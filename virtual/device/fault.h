/**
 * Planned faults of a device: the n-th call of an operation fails.
 */
#ifndef VIRTUAL_DEVICE_FAULT_H
#define VIRTUAL_DEVICE_FAULT_H

#include <atomic>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "virtual/vap.h"

namespace vap {

class Faults {
  public:
    void plan(const std::string &op, int nth, int times, std::optional<long> result);

    /** Drops what `plan` planned; was some of it still to come? */
    bool forget();

    /** Has the hardware description changed since this was last asked? */
    bool behind(uint32_t generation);

    /** Takes the plans of a hardware description ([{"op", "nth", "times",
     *  "result"}]) in place of those that it gave before, when they differ. */
    void follow(const Json &plans);

    /** Counts a call; the result to return when it is to fail. */
    std::optional<long> due(std::string_view op, long failure);

  private:
    struct Plan {
        std::string op;
        int wait;  /**< calls that still succeed */
        int times; /**< calls that still fail; below 0: without end */
        std::optional<long> result;
        bool described; /**< from the hardware description */
    };

    std::mutex mutex_;
    std::list<Plan> plans_;
    std::atomic<bool> planned_{false}; /**< every platform call asks: no lock for none */
    std::atomic<uint32_t> generation_{0};
    Json described_;
};

}  // namespace vap

#endif
