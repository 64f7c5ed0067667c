#include "bench/support/ratio.h"

#include <algorithm>
#include <ctime>
#include <vector>

namespace bench {
namespace {

double thread_seconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double seconds_of(const std::function<void()> &act) {
    const double start = thread_seconds();
    act();
    return thread_seconds() - start;
}

double median(std::vector<double> &values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
}

}  // namespace

Medians measure(const std::function<void()> &work, const std::function<void()> &floor,
                const std::function<void()> &prepare, int rounds) {
    std::vector<double> works;
    std::vector<double> floors;
    const int warm_up = rounds / 10;
    for (int i = -warm_up; i < rounds; ++i) {
        prepare();
        const double work_time = seconds_of(work);
        const double floor_time = seconds_of(floor);
        if (i >= 0) {
            works.push_back(work_time);
            floors.push_back(floor_time);
        }
    }
    return {median(works), median(floors)};
}

}  // namespace bench
