#include "controller/desired/step.h"

#include <algorithm>
#include <array>
#include <limits>

#include "controller/desired/known.h"

namespace desired {
namespace {

struct Command {
    Task task;
    const char *family;
    int slot;
    const char *name;
    int seconds; /**< for its answer: a commit takes a device more than a second */
};

constexpr std::array commands{
    Command{Task::bind, "cloud", 0, "add_router_to_prj", 20},
    Command{Task::announce, "cloud", 3, "server_status", 20},
    Command{Task::name_server, "dev", 20, "server_info", 20},
    Command{Task::ask, "dev", 3, "timestamp_download", 20},
    Command{Task::maintenance, "dev", 6, "auto_maint", 20},
    Command{Task::ssids, "wlan", 0, "wlan_config_set", 40},
    Command{Task::radios, "wlan", 2, "radio_config_set", 40},
    Command{Task::read, "dev", 2, "config_upload", 20},
};
constexpr bool commands_are_sound() {
    for (size_t i = 0; i < commands.size(); ++i) {
        if (commands[i].task != static_cast<Task>(i)) {
            return false;
        }
    }
    return true;
}
static_assert(commands_are_sound());

const Command &command_of(Task task) {
    return commands[static_cast<size_t>(task)];
}

/* ---- may we? ------------------------------------------------------------ */

/** Whether the device is in the site's project, or may be taken into it. */
struct Membership {
    enum class Kind { in, to_be_bound, elsewhere, elsewhere_locally } kind;
    std::string reason;
};

Membership membership_of(const Known &known, const Desire &desire) {
    using Kind = Membership::Kind;
    const Binding &binding = binding_of(known);
    const std::string policy = desire.site.at("policies").at("bind");
    if (is_same_project(binding, bound_to(desire.site))) {
        return {Kind::in, ""};
    }
    if (!binding.known) {
        return {Kind::elsewhere, "The device has not told its project yet."};
    }
    const bool is_bound = binding.managed && binding.bound;
    if (binding.managed && binding.local) {
        return {Kind::elsewhere_locally, "The device is managed locally."};
    }
    if (policy == "never") {
        return {Kind::elsewhere,
                "The device is not in the site's project, and the site binds none."};
    }
    if (policy == "unbound" && is_bound && !is_same_project(binding, known.owned)) {
        return {Kind::elsewhere, "The device is bound to project " +
                                     std::to_string(binding.project_id) +
                                     ", and the site binds only devices without a project."};
    }
    return {Kind::to_be_bound, ""};
}

/** What was pushed and is gone since the device was away was not kept: a commit that fails is
 *  not told, and shows the new values until the restart. */
bool is_lost(const Known &known, const Desire &desire) {
    return !known.survived && known.round_version == desire.version &&
           known.round_session != known.session && known.in_sync_session != known.session;
}

/** Whether differences are to be sent, or only to be shown: those that somebody made since the
 *  device was in sync are the policy's. */
bool may_push(const Known &known, const Desire &desire) {
    return !known.forced.empty() || stamps_differ(known) || is_lost(known, desire) ||
           known.in_sync_version != desire.version ||
           desire.site.at("policies").at("drift") == "force";
}

/** When the next push may begin; nothing: now. */
std::optional<Time> push_waits(const Known &known, const Desire &desire, Time now) {
    const int rounds = rounds_so_far(known, desire, now);
    const Time wait = doubled(round_wait, rounds - quick_rounds + 1, longest_round_wait);
    if (rounds < quick_rounds || !within(now, known.round_at, wait)) {
        return std::nullopt;
    }
    return known.round_at + wait;
}

/* ---- what is to be sent ------------------------------------------------- */

struct Group {
    const char *path;
    Task piece;
};
constexpr std::array groups{Group{"/reboot", Task::maintenance}, Group{"/ssids", Task::ssids},
                            Group{"/radios", Task::radios}};

bool drifts(const Known &known, const char *path) {
    return std::ranges::any_of(known.differences, [path](const Difference &difference) {
        return difference.kind == Difference::Kind::drift && difference.path.starts_with(path);
    });
}

/** In their order. SSIDs take the stamp of the wireless part away, so radios follow them. */
std::vector<Task> pieces_of(const Known &known, const Desire &desire) {
    std::vector<Task> pieces;
    const bool counts = read_counts(known, desire);
    for (const Group &group : groups) {
        const bool is_stamp_lost =
            counts && stamps_differ(known) &&
            ((group.piece == Task::maintenance && known.maintenance_differs) ||
             (group.piece == Task::radios && known.wireless_differs));
        if (holds(known.forced, group.piece) || is_stamp_lost ||
            (counts && drifts(known, group.path)) ||
            (group.piece == Task::radios && holds(pieces, Task::ssids))) {
            pieces.push_back(group.piece);
        }
    }
    return pieces;
}

/** Pieces that are wanted and may be sent, now or later. */
std::vector<Task> due_pieces(const Known &known, const Desire &desire) {
    return may_push(known, desire) ? pieces_of(known, desire) : std::vector<Task>();
}

/* ---- the order ---------------------------------------------------------- */

Json ask_request(const Known &known, const Desire &desire, Time now) {
    const auto category = [](int mode, int64_t stamp) {
        return Json{{"mode", mode}, {"timestamp", stamp}};
    };
    // A zone, a region or a category that is left out would be taken for a default.
    return {{"timestamp", std::min<Time>(now, std::numeric_limits<int32_t>::max())},
            {"time_zone", desire.site.at("time_zone")},
            {"region", desire.site.at("region")},
            {"time_array", Json::array({category(0, 0), category(1, known.wireless_stamp),
                                        category(2, known.maintenance_stamp)})}};
}

Json bind_request(const Json &site) {
    return {{"cloud_id", site.at("cloud_id")},
            {"project_id", site.at("project_id")},
            {"time_zone", site.at("time_zone")},
            {"region", site.at("region")}};
}

Json request_of(const Order &order, const Known &known, const Desire &desire, Time now) {
    switch (order.task) {
        case Task::bind:
            return bind_request(desire.site);
        case Task::announce:
            return {{"cloud_status", 0}};  // inverted: the device then stores 1, and begins
        case Task::name_server:
            return desire.topology_server;
        case Task::ask:
            return ask_request(known, desire, now);
        case Task::maintenance:
            return maintenance_request(desire.configuration, order.stamp);
        case Task::ssids:
            return ssids_request(desire.configuration);
        case Task::radios:
            return radios_request(desire.configuration, order.stamp);
        case Task::read:
            break;
    }
    return Json::object();
}

Order order_of(Task task, const Known &known, const Desire &desire, Time now,
               std::vector<Task> plan = {}) {
    const Command &command = command_of(task);
    Order order{.number = known.commands + 1,
                .task = task,
                .family = command.family,
                .slot = command.slot,
                .name = command.name,
                .seconds = command.seconds,
                .plan = std::move(plan)};
    if (task == Task::maintenance || task == Task::radios) {
        order.stamp = new_stamp(known, now);
    }
    order.request = request_of(order, known, desire, now);
    return order;
}

/** What to do next with a device that waits for nothing. */
struct Choice {
    std::optional<Order> order;
    std::optional<Time> at;
};

/** For how long answers count. Devices that were asked at one moment are not asked again at one. */
Time answers_hold(const Known &known) {
    constexpr Time spread = Time{2} * 3600;
    return day - known.since_ms % spread;
}

bool ask_is_due(const Known &known, const Desire &desire, Time now) {
    return known.asked_session != known.session || known.time_zone != desire.site.at("time_zone") ||
           known.region != desire.site.at("region") ||
           !within(now, known.asked_at, answers_hold(known));
}

/** The first command of a push; what the device says to `ask` may end it. */
Choice push(const Known &known, const Desire &desire, Time now, std::vector<Task> tasks) {
    if (new_stamp(known, now) == 0) {
        return {};
    }
    if (!within(now, known.asked_at, ask_holds)) {
        tasks.insert(tasks.begin(), Task::ask);
    }
    tasks.push_back(Task::read);
    return {order_of(tasks.front(), known, desire, now, tasks), std::nullopt};
}

Choice configure(const Known &known, const Desire &desire, Time now) {
    if (desire.configuration.is_null()) {
        return {};
    }
    const std::vector<Task> pieces = due_pieces(known, desire);
    const auto wait = push_waits(known, desire, now);
    if (!pieces.empty() && !wait) {
        return push(known, desire, now, pieces);
    }
    if (!read_counts(known, desire) || !within(now, known.read_at, answers_hold(known))) {
        return {order_of(Task::read, known, desire, now), std::nullopt};
    }
    const Time doubtful = std::min(known.asked_at, known.read_at) + answers_hold(known);
    return {std::nullopt, pieces.empty() ? doubtful : std::min(doubtful, *wait)};
}

Choice choose(const Known &known, const Desire &desire, Time now) {
    const Membership membership = membership_of(known, desire);
    if (membership.kind != Membership::Kind::in &&
        membership.kind != Membership::Kind::to_be_bound) {
        return {};
    }
    const bool is_forgotten = known.in_flight != 0;
    if (is_pushing(known, desire) && !is_forgotten) {
        return {order_of(known.todo.front(), known, desire, now), std::nullopt};
    }
    // A device in local mode is not bound: it would take nothing afterwards.
    const bool is_in = membership.kind == Membership::Kind::in;
    const bool may_be_local = known.local || binding_of(known).local;
    if ((is_in || may_be_local) && (is_forgotten || ask_is_due(known, desire, now))) {
        return {order_of(Task::ask, known, desire, now), std::nullopt};
    }
    if (known.local && known.asked_session == known.session) {
        return {std::nullopt, known.asked_at + answers_hold(known)};
    }
    if (!is_in) {
        return {order_of(Task::bind, known, desire, now), std::nullopt};
    }
    if (!known.announced) {
        return {order_of(Task::announce, known, desire, now), std::nullopt};
    }
    if (!desire.topology_server.is_null() && known.server_session != known.session) {
        return {order_of(Task::name_server, known, desire, now), std::nullopt};
    }
    return configure(known, desire, now);
}

/* ---- what is waited for ------------------------------------------------- */

/** Seconds after which nobody will tell any more what became of a command: who sent it has ended,
 *  and did not give it up. */
Time forgotten_after(const Known &known) {
    return 2 * command_of(known.in_flight_task).seconds + 30;
}

bool is_in_flight(const Known &known, Time now) {
    return known.in_flight != 0 && within(now, known.sent_at, forgotten_after(known));
}

std::optional<Time> waits_until(const Known &known, Time now) {
    if (is_in_flight(known, now)) {
        const Time end = known.sent_at + command_of(known.in_flight_task).seconds;
        return now < end ? end : known.sent_at + forgotten_after(known);
    }
    if (known.restarting_at != 0 && within(now, known.restarting_at, restart_wait)) {
        return known.restarting_at + restart_wait;
    }
    const bool is_introduced =
        known.identity_session == known.session && known.binding_session == known.session;
    if (!is_introduced && within(now, known.since, introduction_wait)) {
        return known.since + introduction_wait;
    }
    const Time pause = doubled(fruitless_wait, known.fruitless, longest_fruitless_wait);
    if (known.fruitless > 0 && within(now, known.fruitless_at, pause)) {
        return known.fruitless_at + pause;
    }
    return std::nullopt;
}

/* ---- the state ---------------------------------------------------------- */

Next in_state(State state, std::string reason = "") {
    return {.state = state, .reason = std::move(reason)};
}

/** The state of a device that was read back on this connection, and in this version. */
Next compared(const Known &known, const Desire &desire, Time now) {
    Next next;
    next.differences = known.differences;
    if (!has_drift(known)) {
        next.state = State::in_sync;
        return next;
    }
    const bool is_due = !due_pieces(known, desire).empty();
    if (is_due && !push_waits(known, desire, now) && new_stamp(known, now) != 0) {
        return in_state(State::pending);
    }
    next.state = State::differs;
    if (is_due) {
        next.reason = "The device does not take the configuration.";
        for (Difference &difference : next.differences) {
            if (difference.kind == Difference::Kind::drift) {
                difference.kind = Difference::Kind::refused;
            }
        }
    }
    return next;
}

Next judge(const Known &known, const Desire &desire, Time now) {
    if (desire.site.is_null()) {
        return in_state(State::none);
    }
    if (!known.online) {
        return in_state(State::unknown,
                        known.since == 0 ? "The device was never seen." : "The device is offline.");
    }
    if (known.silent) {
        return in_state(State::unknown, "The device does not answer.");
    }
    const Membership membership = membership_of(known, desire);
    if (membership.kind == Membership::Kind::elsewhere_locally ||
        (known.local && known.asked_session == known.session)) {
        return in_state(State::locally_managed);
    }
    if (membership.kind == Membership::Kind::elsewhere) {
        return in_state(State::pending, membership.reason);
    }
    if (desire.configuration.is_null()) {
        return in_state(State::pending,
                        desire.problem.empty() ? "The site has no configuration." : desire.problem);
    }
    if (is_pushing(known, desire)) {
        return in_state(State::applying);
    }
    if (membership.kind == Membership::Kind::in && read_counts(known, desire)) {
        return compared(known, desire, now);
    }
    return in_state(State::pending,
                    known.fruitless > 0 ? "The device refused a command; it is sent again." : "");
}

}  // namespace

Next next_step(const Known &known, const Desire &desire, Time now) {
    Next next = judge(known, desire, now);
    if (desire.site.is_null() || !known.online) {
        return next;
    }
    next.at = waits_until(known, now);
    if (!next.at) {
        Choice choice = choose(known, desire, now);
        next.order = std::move(choice.order);
        next.at = choice.at;
    }
    return next;
}

}  // namespace desired
