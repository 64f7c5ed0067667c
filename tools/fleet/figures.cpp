#include "tools/fleet/figures.h"

#include <algorithm>
#include <tuple>

namespace fleet {
namespace {

/** What becomes of a member when two slices come together. */
enum class Merge { same, sum, most, either, rows, all };

template <typename Record, typename Member>
struct Row {
    const char *key;
    Member Record::*member;
    Merge merge;
};
template <typename Record, typename Member>
Row(const char *, Member Record::*, Merge) -> Row<Record, Member>;

/** The members of each record: how a report calls them, and how they merge. */
constexpr auto rows_of(const StepFigures *) {
    return std::tuple{
        Row{"name", &StepFigures::name, Merge::same},
        Row{"planned_at_s", &StepFigures::planned_at, Merge::same},
        Row{"began_at_s", &StepFigures::began_at, Merge::most},
        Row{"planned", &StepFigures::planned, Merge::sum},
        Row{"done", &StepFigures::done, Merge::sum},
        Row{"awaited", &StepFigures::awaited, Merge::sum},
        Row{"back", &StepFigures::back, Merge::sum},
        Row{"to_full_s", &StepFigures::to_full, Merge::most},
    };
}
constexpr auto rows_of(const CallFigures *) {
    return std::tuple{
        Row{"command", &CallFigures::command, Merge::same},
        Row{"sent", &CallFigures::sent, Merge::sum},
        Row{"answered", &CallFigures::answered, Merge::sum},
        Row{"refused", &CallFigures::refused, Merge::sum},
        Row{"late", &CallFigures::late, Merge::sum},
        Row{"missing", &CallFigures::missing, Merge::sum},
        Row{"twice", &CallFigures::twice, Merge::sum},
        Row{"away", &CallFigures::away, Merge::sum},
        Row{"times_us", &CallFigures::times, Merge::sum},
    };
}
constexpr auto rows_of(const EndFigures *) {
    return std::tuple{
        Row{"serial", &EndFigures::serial, Merge::same},
        Row{"how", &EndFigures::how, Merge::same},
        Row{"last_line", &EndFigures::last_line, Merge::same},
    };
}
constexpr auto rows_of(const Figures *) {
    return std::tuple{
        Row{"scenario", &Figures::scenario, Merge::same},
        Row{"seed", &Figures::seed, Merge::same},
        Row{"speed", &Figures::speed, Merge::same},
        Row{"slice", &Figures::slice, Merge::all},
        Row{"machines", &Figures::machines, Merge::all},
        Row{"seconds", &Figures::seconds, Merge::most},
        Row{"interrupted", &Figures::interrupted, Merge::either},
        Row{"devices", &Figures::devices, Merge::sum},
        Row{"online", &Figures::online, Merge::sum},
        Row{"lost", &Figures::lost, Merge::sum},
        Row{"restarts", &Figures::restarts, Merge::sum},
        Row{"registrations", &Figures::registrations, Merge::sum},
        Row{"registrations_peak_per_s", &Figures::registrations_peak, Merge::sum},
        Row{"registered_within_s", &Figures::registered_within, Merge::most},
        Row{"back_within_s", &Figures::back_within, Merge::most},
        Row{"roams", &Figures::roams, Merge::sum},
        Row{"settings_lost", &Figures::settings_lost, Merge::sum},
        Row{"memory_of_one_kib", &Figures::memory_of_one_kib, Merge::most},
        Row{"memory_peak_kib", &Figures::memory_kib, Merge::sum},
        Row{"wakeups_of_one_per_s", &Figures::wakeups_of_one, Merge::most},
        Row{"processor_percent", &Figures::processor_percent, Merge::sum},
        Row{"processor_peak_percent", &Figures::processor_peak, Merge::sum},
        Row{"steps", &Figures::steps, Merge::rows},
        Row{"calls", &Figures::calls, Merge::rows},
        Row{"uploads", &Figures::uploads, Merge::sum},
        Row{"missing_answers_by_serial", &Figures::missing, Merge::sum},
        Row{"ended", &Figures::ended, Merge::all},
        Row{"not_back", &Figures::not_back, Merge::all},
    };
}

template <typename Record, typename Act>
void each_row(Act act) {
    std::apply([&](const auto &...row) { (act(row), ...); },
               rows_of(static_cast<const Record *>(nullptr)));
}

template <typename Record>
concept Described = requires(const Record *record) {
    rows_of(record);
};

/* ---- values of any kind, out and in ------------------------------------- */

template <typename Value>
Json put(const std::vector<Value> &list);
template <typename Value>
void take(const Json &from, std::vector<Value> &list);

template <typename Value>
Json put(const Value &value) {
    return value;
}
inline Json put(const Histogram &times) {
    return times.json();
}
template <Described Record>
Json put(const Record &record) {
    Json object = Json::object();
    each_row<Record>([&](const auto &row) { object[row.key] = put(record.*row.member); });
    return object;
}
template <typename Value>
Json put(const std::vector<Value> &list) {
    Json all = Json::array();
    for (const Value &value : list) {
        all.push_back(put(value));
    }
    return all;
}

template <typename Value>
void take(const Json &from, Value &value) {
    from.get_to(value);
}
inline void take(const Json &from, Histogram &times) {
    times = Histogram::from(from);
}
template <Described Record>
void take(const Json &from, Record &record) {
    each_row<Record>([&](const auto &row) { take(from.at(row.key), record.*row.member); });
}
template <typename Value>
void take(const Json &from, std::vector<Value> &list) {
    for (const Json &one : from) {
        take(one, list.emplace_back());
    }
}

/* ---- two slices --------------------------------------------------------- */

inline void add(Histogram &into, const Histogram &other) {
    into.merge(other);
}
inline void add(std::map<std::string, uint64_t> &into,
                const std::map<std::string, uint64_t> &other) {
    for (const auto &[key, count] : other) {
        into[key] += count;
    }
}
template <typename Number>
requires std::is_arithmetic_v<Number> &&
    (!std::is_same_v<Number, bool>)void add(Number &into, const Number &other) {
    if (into >= 0 && other >= 0) {  // below: one of them was not measured
        into += other;
    }
}

template <typename Record>
void merge_record(Record &into, const Record &other);

template <typename Value>
void merge_value(Value &into, const Value &other, Merge how) {
    if constexpr (requires { add(into, other); }) {
        if (how == Merge::sum) {
            add(into, other);
        }
    }
    if constexpr (std::is_arithmetic_v<Value>) {
        if (how == Merge::most || how == Merge::either) {
            into = std::max(into, other);
        }
    }
    if constexpr (requires { into.insert(into.end(), other.begin(), other.end()); }) {
        if (how == Merge::all) {
            if constexpr (std::is_same_v<Value, std::string>) {
                into += ", ";
            }
            into.insert(into.end(), other.begin(), other.end());
        }
    }
    if constexpr (requires { rows_of(&into[0]); }) {
        for (size_t i = 0; how == Merge::rows && i < std::min(into.size(), other.size()); ++i) {
            merge_record(into[i], other[i]);
        }
    }
}

template <typename Record>
void merge_record(Record &into, const Record &other) {
    each_row<Record>(
        [&](const auto &row) { merge_value(into.*row.member, other.*row.member, row.merge); });
}

}  // namespace

Histogram Figures::answer_times() const {
    Histogram all;
    for (const CallFigures &call : calls) {
        all.merge(call.times);
    }
    return all;
}

Json to_json(const Figures &figures) {
    return put(figures);
}

Figures figures_from(const Json &report) {
    Figures figures;
    try {
        take(report, figures);
    } catch (const Json::exception &error) {
        throw tools::Failure(std::string("this is no report of a fleet: ") + error.what());
    }
    return figures;
}

void merge(Figures &into, const Figures &other) {
    merge_record(into, other);
}

}  // namespace fleet
