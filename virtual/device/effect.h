/**
 * A contract call that is an effect: it may be planned to fail, and it is
 * journalled with its result.
 */
#ifndef VIRTUAL_DEVICE_EFFECT_H
#define VIRTUAL_DEVICE_EFFECT_H

#include <utility>

#include "virtual/device/device.h"

namespace vap {

/** Runs `act` (which returns the call's result) unless a fault is due, and
 *  journals the call. */
template <typename Act>
int effect(const char *op, Json args, int failure, Act act) {
    const Inside inside;
    const std::optional<long> fault = due_fault(op, failure);
    const int result = fault ? static_cast<int>(*fault) : act();
    record(op, std::move(args), result);
    return result;
}

/** The same for a call that always succeeds with 0. */
inline int effect(const char *op, Json args, int failure = -1) {
    return effect(op, std::move(args), failure, [] { return 0; });
}

}  // namespace vap

#endif
