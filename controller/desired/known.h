/**
 * What follows from what is known: questions that both the next step and the events ask.
 */
#ifndef CONTROLLER_DESIRED_KNOWN_H
#define CONTROLLER_DESIRED_KNOWN_H

#include <algorithm>

#include "controller/desired/step.h"

namespace desired {

/** The commands that set the configuration, in their order. */
inline const std::vector<Task> all_pieces{Task::maintenance, Task::ssids, Task::radios};

inline bool holds(const std::vector<Task> &tasks, Task task) {
    return std::find(tasks.begin(), tasks.end(), task) != tasks.end();
}

/** True from `from` on for a while. A clock that was set back ends no wait later than planned. */
inline bool within(Time now, Time from, Time period) {
    return from <= now && now < from + period;
}

/** A wait that doubles: the first is for `count` 1. */
Time doubled(Time first, int count, Time longest);

/** The binding that counts: ours since the device's start, or else what it told. */
inline const Binding &binding_of(const Known &known) {
    return known.given.known ? known.given : known.heard;
}

/** What `add_router_to_prj` with these ids makes of a device. */
Binding bound_to(const Json &ids);

bool is_same_project(const Binding &binding, const Binding &other);

/** The last read-back tells about this connection and this version. */
inline bool read_counts(const Known &known, const Desire &desire) {
    return known.session > 0 && known.read_session == known.session &&
           known.read_version == desire.version;
}

/** The device's stamps are not those that it was given last. */
inline bool stamps_differ(const Known &known) {
    return known.asked_session == known.session &&
           (known.wireless_differs || known.maintenance_differs);
}

/** A push is under way; one of another version than is wanted by now has ended. */
inline bool is_pushing(const Known &known, const Desire &desire) {
    return !known.todo.empty() && known.round_version == desire.version &&
           !desire.configuration.is_null();
}

bool has_drift(const Known &known);

/** Rounds that count against the bound if another one begins now. */
int rounds_so_far(const Known &known, const Desire &desire, Time now);

/** A stamp that was never given; 0: there is none left. */
int64_t new_stamp(const Known &known, Time now);

}  // namespace desired

#endif
