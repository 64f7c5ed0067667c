#include "controller/desired/known.h"

#include <algorithm>
#include <limits>

namespace desired {
namespace {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(
    Known, online, since, number, since_ms, session, identity_session, binding_session,
    restarting_at, heard, given, owned, announced, server_session, last_stamp, wireless_stamp,
    maintenance_stamp, asked_session, asked_at, local, wireless_differs, maintenance_differs,
    time_zone, region, read_session, read_at, read_version, differences, substitutes,
    in_sync_version, in_sync_at, in_sync_session, todo, forced, power_sent, commands, in_flight,
    in_flight_task, sent_at, rounds, round_at, round_version, round_session, restarted, survived,
    fruitless, fruitless_at, silent)

}  // namespace

std::string text_of(const Known &known) {
    nlohmann::json object;
    to_json(object, known);
    return object.dump();
}

Known known_of(const std::string &text) {
    Known known;
    from_json(nlohmann::json::parse(text), known);
    return known;
}

Time doubled(Time first, int count, Time longest) {
    Time wait = first;
    for (int i = 1; i < count && wait < longest; ++i) {
        wait *= 2;
    }
    return std::min(wait, longest);
}

Binding bound_to(const Json &ids) {
    Binding binding{.known = true, .managed = true, .local = false, .bound = true};
    if (ids.is_object()) {
        const Json project = ids.value("project_id", Json());
        const Json cloud = ids.value("cloud_id", Json());
        binding.project_id = project.is_number_integer() ? project.get<int64_t>() : 0;
        binding.cloud_id = cloud.is_string() ? cloud.get<std::string>() : "";
    }
    return binding;
}

bool is_same_project(const Binding &binding, const Binding &other) {
    return binding.managed && binding.bound && other.managed && other.bound &&
           binding.project_id == other.project_id && binding.cloud_id == other.cloud_id;
}

bool has_drift(const Known &known) {
    return std::ranges::any_of(known.differences, [](const Difference &difference) {
        return difference.kind == Difference::Kind::drift;
    });
}

int rounds_so_far(const Known &known, const Desire &desire, Time now) {
    const bool was_quiet =
        known.in_sync_at >= known.round_at && !within(now, known.round_at, quiet_time);
    return known.round_version != desire.version || was_quiet ? 0 : known.rounds;
}

int64_t new_stamp(const Known &known, Time now) {
    // The device keeps 32 bits, and 0 is nobody's.
    const int64_t stamp = std::max({now, known.last_stamp + 1, int64_t{1}});
    return stamp <= std::numeric_limits<int32_t>::max() ? stamp : 0;
}

}  // namespace desired
