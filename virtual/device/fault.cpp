#include "virtual/device/fault.h"

#include <algorithm>
#include <cstdio>

#include "virtual/folder/json.h"

namespace vap {

void Faults::plan(const std::string &op, int nth, int times, std::optional<long> result) {
    const std::lock_guard lock(mutex_);
    plans_.push_back({op, std::max(nth, 1) - 1, times, result, false});
    planned_ = true;
}

bool Faults::forget() {
    const std::lock_guard lock(mutex_);
    bool to_come = false;
    plans_.remove_if([&](const Plan &plan) {
        to_come = to_come || (!plan.described && plan.times != 0);
        return !plan.described;
    });
    planned_ = !plans_.empty();
    return to_come;
}

bool Faults::behind(uint32_t generation) {
    return generation_ != generation && generation_.exchange(generation) != generation;
}

void Faults::follow(const Json &plans) {
    const std::lock_guard lock(mutex_);
    if (plans == described_) {
        return;
    }
    described_ = plans;
    plans_.remove_if([](const Plan &plan) { return plan.described; });
    for (const Json &row : plans) {
        const auto number = [&](const char *name, int missing) {
            return integer_of(row.value(name, Json(missing))).value();
        };
        try {
            Plan plan{
                row.at("op"), std::max(number("nth", 1), 1) - 1, number("times", 1), {}, true};
            if (row.contains("result")) {
                plan.result = number("result", 0);
            }
            plans_.push_back(std::move(plan));
        } catch (const std::exception &) {
            fprintf(stderr, "vap: hardware.json: not a fault: %s\n", row.dump().c_str());
        }
    }
    planned_ = !plans_.empty();
}

std::optional<long> Faults::due(std::string_view op, long failure) {
    if (!planned_) {
        return std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    std::optional<long> result;
    for (Plan &plan : plans_) {
        if ((plan.op != op && plan.op != "*") || plan.times == 0) {
            continue;
        }
        if (plan.wait > 0) {
            --plan.wait;
        } else if (!result) {
            result = plan.result.value_or(failure);
            plan.times -= plan.times > 0 ? 1 : 0;
        }
    }
    return result;
}

}  // namespace vap
