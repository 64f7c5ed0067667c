#include "tools/fleet/goals.h"

#include <algorithm>

namespace fleet {
namespace {

using Figure = std::optional<double>;

template <uint64_t CallFigures::*count>
Figure sum(const Figures &figures) {
    double all = 0;
    for (const CallFigures &call : figures.calls) {
        all += static_cast<double>(call.*count);
    }
    return all;
}

Figure answer(const Figures &figures, double share) {
    const Histogram times = figures.answer_times();
    return times.count() > 0 ? Figure(times.ms(share)) : std::nullopt;
}

Figure measured(double value) {
    return value < 0 ? std::nullopt : Figure(value);
}

struct GoalRow {
    const char *name;
    Figure (*figure)(const Figures &);
};

constexpr GoalRow rows[] = {
    {"registered_within_s", [](const Figures &f) { return Figure(f.registered_within); }},
    {"back_within_s", [](const Figures &f) { return Figure(f.back_within); }},
    {"lost", [](const Figures &f) { return Figure(static_cast<double>(f.lost)); }},
    {"restarts",
     [](const Figures &f) {
         return Figure(static_cast<double>(f.restarts) / static_cast<double>(f.devices));
     }},
    {"answer_p50_ms", [](const Figures &f) { return answer(f, 0.5); }},
    {"answer_p99_ms", [](const Figures &f) { return answer(f, 0.99); }},
    {"missing_answers", sum<&CallFigures::missing>},
    {"late_answers", sum<&CallFigures::late>},
    {"refused_answers", sum<&CallFigures::refused>},
    {"answered_twice", sum<&CallFigures::twice>},
    {"settings_lost",
     [](const Figures &f) { return Figure(static_cast<double>(f.settings_lost)); }},
    {"memory_of_one_kib",
     [](const Figures &f) {
         return f.memory_of_one_kib > 0 ? Figure(f.memory_of_one_kib) : Figure();
     }},
    {"wakeups_of_one_per_s", [](const Figures &f) { return measured(f.wakeups_of_one); }},
    {"processor_percent", [](const Figures &f) { return measured(f.processor_percent); }},
};

}  // namespace

std::vector<Verdict> judge(const std::vector<Goal> &goals, const Figures &figures) {
    std::vector<Verdict> verdicts;
    for (const Goal &goal : goals) {
        const Figure figure = std::ranges::find(rows, goal.name, &GoalRow::name)->figure(figures);
        const bool met = figure && *figure <= goal.at_most.value_or(*figure) &&
                         *figure >= goal.at_least.value_or(*figure);
        verdicts.push_back({goal, figure, met});
    }
    return verdicts;
}

std::vector<std::string> goal_names() {
    std::vector<std::string> names;
    std::ranges::transform(rows, std::back_inserter(names), &GoalRow::name);
    return names;
}

Json to_json(const std::vector<Verdict> &verdicts) {
    Json list = Json::array();
    for (const Verdict &verdict : verdicts) {
        Json one{{"goal", verdict.goal.name}};
        for (const auto &[key, bound] :
             {std::pair("at_least", verdict.goal.at_least),
              std::pair("at_most", verdict.goal.at_most), std::pair("figure", verdict.figure)}) {
            if (bound) {
                one[key] = *bound;
            }
        }
        one["met"] = verdict.met;
        list.push_back(one);
    }
    return list;
}

std::vector<Goal> goals_from(const Json &verdicts) {
    std::vector<Goal> goals;
    const std::vector<std::string> known = goal_names();
    for (const Json &one : verdicts) {
        Goal goal{one.at("goal"), {}, {}};
        if (std::ranges::find(known, goal.name) == known.end()) {
            throw tools::Failure("this is no goal: " + goal.name);
        }
        for (const auto &[key, bound] :
             {std::pair("at_least", &goal.at_least), std::pair("at_most", &goal.at_most)}) {
            if (one.contains(key)) {
                *bound = one.at(key).get<double>();
            }
        }
        goals.push_back(std::move(goal));
    }
    return goals;
}

}  // namespace fleet
