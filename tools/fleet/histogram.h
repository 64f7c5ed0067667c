/**
 * Times, counted in classes that are at most 1/64 (1.6 %) wide.
 */
#ifndef TOOLS_FLEET_HISTOGRAM_H
#define TOOLS_FLEET_HISTOGRAM_H

#include <bit>
#include <cmath>
#include <cstdint>
#include <map>

#include "tools/fleet/located_json.h"

namespace fleet {

class Histogram {
  public:
    /** Counts a time, microseconds. */
    void add(uint64_t us, uint64_t times = 1) {
        classes_[class_of(us)] += times;
        count_ += times;
    }

    uint64_t count() const { return count_; }

    /** The time, microseconds, that this share of all does not exceed, and at most one class
     *  more; 0 without any. */
    uint64_t percentile(double share) const {
        const auto wanted = static_cast<uint64_t>(std::ceil(share * static_cast<double>(count_)));
        uint64_t seen = 0;
        for (const auto &[highest, times] : classes_) {
            seen += times;
            if (seen >= wanted && seen > 0) {
                return highest;
            }
        }
        return 0;
    }

    /** The same in milliseconds. */
    double ms(double share) const { return static_cast<double>(percentile(share)) / 1e3; }

    void merge(const Histogram &other) {
        for (const auto &[us, times] : other.classes_) {
            add(us, times);
        }
    }

    /** [[microseconds, times], ...], and back. */
    Json json() const {
        Json list = Json::array();
        for (const auto &[us, times] : classes_) {
            list.push_back({us, times});
        }
        return list;
    }
    static Histogram from(const Json &list) {
        Histogram made;
        for (const Json &one : list) {
            made.add(one.at(0).get<uint64_t>(), one.at(1).get<uint64_t>());
        }
        return made;
    }

  private:
    /** The highest time of a time's class. */
    static uint64_t class_of(uint64_t us) {
        const int low_bits = std::max(0, static_cast<int>(std::bit_width(us)) - 7);
        return us | ((uint64_t{1} << low_bits) - 1);
    }

    std::map<uint64_t, uint64_t> classes_; /**< times by the highest time of the class */
    uint64_t count_ = 0;
};

}  // namespace fleet

#endif
