#include <algorithm>
#include <array>
#include <string_view>

#include "controller/desired/known.h"

namespace desired {
namespace {

int64_t number_in(const Json &object, const char *member) {
    const Json value = object.is_object() ? object.value(member, Json()) : Json();
    return value.is_number_integer() ? value.get<int64_t>() : 0;
}

std::string text_in(const Json &object, const char *member) {
    const Json value = object.is_object() ? object.value(member, Json()) : Json();
    return value.is_string() ? value.get<std::string>() : "";
}

/** What the device holds must be asked for and read again. */
void doubt(Known &known) {
    known.asked_session = 0;
    known.read_session = 0;
}

/** Ends the command in flight, and the push it belongs to, without the hoped-for answer. */
void give_up(Known &known, bool silent, Time now) {
    known.in_flight = 0;
    known.todo.clear();
    known.asked_session = 0;
    known.fruitless += 1;
    known.fruitless_at = now;
    known.silent = silent;
}

/* ---- answers ------------------------------------------------------------ */

struct Context {
    Known &known;
    const Desire &desire;
    const Json &answer;
    Time now;
};

/** A piece of the configuration was taken. */
void piece_taken(Known &known, Task piece) {
    std::erase(known.forced, piece);
    if (piece == Task::maintenance) {
        known.maintenance_differs = false;
    } else if (piece == Task::radios) {
        known.wireless_differs = false;
        known.power_sent = true;
    }
}

void bound(const Context &context) {
    Known &known = context.known;
    known.given = bound_to(context.desire.site);
    known.owned = known.given;
    known.announced = false;
    known.forced = all_pieces;
    doubt(known);
}

/** True when the device has lost all that it was given: it was restored, and we heard of its
 *  start only what it told before we bound it. */
bool is_restored(const Known &known) {
    return known.given.known && !known.heard.bound && known.forced.empty() &&
           known.wireless_differs && known.maintenance_differs;
}

void told_stamps(const Context &context) {
    Known &known = context.known;
    const std::string categories = text_in(context.answer, "mode");
    const auto names = [&](const char *category) {
        return categories == "all" || categories.find(category) != std::string::npos;
    };
    known.asked_session = known.session;
    known.asked_at = context.now;
    known.wireless_differs = known.wireless_stamp != 0 && names("wireless");
    known.maintenance_differs = known.maintenance_stamp != 0 && names("devicemain");
    known.local = number_in(context.answer, "manage_mode") == 2;
    known.heard.local = known.given.local = known.local;
    if (is_same_project(binding_of(known), bound_to(context.desire.site))) {
        known.owned = binding_of(known);
    }
    if (known.local) {
        // When it comes back to us, what was done there is not drift: the site's holds again.
        known.in_sync_version.clear();
        known.read_session = 0;
        known.todo.clear();
    } else if (is_restored(known)) {
        known.given = {};
        known.todo.clear();
    }
}

/** Values that the device put in place of ours. Only right after a push do they tell that. */
void note_substitutes(Known &known) {
    for (const Difference &difference : known.differences) {
        if (known.power_sent && difference.path.ends_with("/power_dbm")) {
            std::erase_if(known.substitutes,
                          [&](const Difference &old) { return old.path == difference.path; });
            known.substitutes.push_back(difference);
        }
    }
    for (Difference &difference : known.differences) {
        if (std::ranges::find(known.substitutes, difference) != known.substitutes.end()) {
            difference.kind = Difference::Kind::substituted;
        }
    }
}

/** False: the report is not whole. */
bool read_back(const Context &context) {
    Known &known = context.known;
    auto differences = context.desire.configuration.is_null()
                           ? std::nullopt
                           : compare(context.desire.configuration, context.answer);
    if (!differences) {
        return false;
    }
    known.read_session = known.session;
    known.read_at = context.now;
    known.read_version = context.desire.version;
    known.differences = std::move(*differences);
    known.power_sent &= known.round_version == context.desire.version;
    note_substitutes(known);
    known.power_sent = false;
    const bool ends_push = is_pushing(known, context.desire);
    if (!has_drift(known)) {
        known.in_sync_version = context.desire.version;
        known.in_sync_at = context.now;
        known.in_sync_session = known.session;
        known.survived |= known.restarted;
    } else if (known.in_sync_version == context.desire.version && !ends_push &&
               known.round_session == known.session) {
        known.survived = true;  // it was there, and somebody changed it
    }
    return true;
}

/** False: what came is no answer to the task. */
bool took(const Context &context, Task task) {
    Known &known = context.known;
    switch (task) {
        case Task::bind:
            bound(context);
            return true;
        case Task::announce:
            known.announced = true;
            return true;
        case Task::name_server:
            known.server_session = known.session;
            return true;
        case Task::ask:
            told_stamps(context);
            return true;
        case Task::maintenance:
        case Task::ssids:
        case Task::radios:
            piece_taken(known, task);
            return true;
        case Task::read:
            return read_back(context);
    }
    return false;
}

/* ---- events ------------------------------------------------------------- */

/** Commands that leave the configuration alone, though some restart the device later. */
constexpr std::array harmless_commands{"status_upload",
                                       "statistic_upload",
                                       "config_upload",
                                       "topo_info",
                                       "server_info",
                                       "server_status",
                                       "radio_optimiza_upload",
                                       "net_check",
                                       "force_off",
                                       "dev_locate",
                                       "dev_config_copy_upload",
                                       "dev_local_upgrade",
                                       "basic_set",
                                       "basic_get",
                                       "route_set",
                                       "port_fwd_set",
                                       "lan_set"};

/** Commands after which the device restarts at once. */
constexpr std::array restarting_commands{"reboot_download", "nx_restore", "nx_upgrade",
                                         "config_sync"};

struct Absorber {
    Known &known;
    const Desire &desire;
    Time now;

    void operator()(const Online &event) const {
        const bool is_same =
            known.session > 0 && event.number == known.number && event.since_ms == known.since_ms;
        if (!known.online) {
            known.since = now;
        }
        known.online = true;
        if (is_same) {
            return;
        }
        if (known.session > 0 && event.number <= known.number) {
            known.given = {};
            known.local = false;
            known.announced = false;  // a commit of it that failed would not be told
            known.restarted = true;
        }
        known.number = event.number;
        known.since_ms = event.since_ms;
        known.since = now;
        known.session += 1;
        known.restarting_at = 0;
        known.power_sent = false;
        known.fruitless = 0;
        known.silent = false;
        stop();
    }

    void operator()(const Offline &) const {
        if (known.online) {
            known.since = now;
        }
        known.online = false;
        stop();
    }

    void operator()(const IdentityHeard &) const { known.identity_session = known.session; }

    void operator()(const BindingHeard &event) const {
        known.heard = bound_to(event.document);
        known.heard.managed = number_in(event.document, "cloud_manage") == 1;
        known.heard.local = number_in(event.document, "manage") == 2;
        known.heard.bound = number_in(event.document, "bind_status") == 1;
        known.binding_session = known.session;
    }

    void operator()(const ManageHeard &event) const {
        if (event.document.is_object() && event.document.contains("mode")) {
            known.restarting_at = now;
        } else {
            known.local |= number_in(event.document, "manage") == 2;
            known.asked_session = 0;
            known.todo.clear();
        }
    }

    void operator()(const Sent &event) const {
        const Order &order = event.order;
        if (known.in_flight != 0) {
            give_up(known, true, now);  // nobody told what became of it
        }
        known.commands = order.number;
        known.in_flight = order.number;
        known.in_flight_task = order.task;
        known.sent_at = now;
        if (!order.plan.empty()) {
            begin_round(order.plan);
        }
        if (order.stamp != 0) {
            known.last_stamp = order.stamp;
            (order.task == Task::radios ? known.wireless_stamp : known.maintenance_stamp) =
                order.stamp;
        }
        if (order.task == Task::ask) {
            known.time_zone = text_in(order.request, "time_zone");
            known.region = number_in(order.request, "region");
        }
        if (holds(all_pieces, order.task)) {
            known.read_session = 0;
        }
    }

    void operator()(const Answered &event) const {
        if (known.in_flight == 0 || event.number != known.in_flight) {
            return;
        }
        const Task task = known.in_flight_task;
        const bool is_good = event.answer.is_object() && event.answer.contains("resp_code") &&
                             event.answer["resp_code"] == 0;
        if (!is_good || !took({known, desire, event.answer, now}, task)) {
            give_up(known, false, now);
            return;
        }
        known.in_flight = 0;
        known.fruitless = 0;
        known.silent = false;
        if (!known.todo.empty() && known.todo.front() == task) {
            known.todo.erase(known.todo.begin());
        }
    }

    void operator()(const TimedOut &event) const {
        if (known.in_flight != 0 && event.number == known.in_flight) {
            give_up(known, true, now);
        }
    }

    void operator()(const Commanded &event) const {
        const auto is_one_of = [&](const auto &names) {
            return std::ranges::find(names, std::string_view(event.name)) != names.end();
        };
        if (is_one_of(harmless_commands)) {
            return;
        }
        if (is_one_of(restarting_commands)) {
            known.restarting_at = now;
        } else if (event.name == "add_router_to_prj") {
            known.given = bound_to(event.request);
        } else if (event.name == "del_router_from_prj") {
            known.given = {.known = true};
        }
        known.todo.clear();
        doubt(known);
    }

    void operator()(const Wished &event) const {
        doubt(known);
        known.fruitless = 0;
        if (event.force) {
            known.forced = all_pieces;
            known.rounds = 0;
        }
    }

  private:
    /** Whatever was on its way may never be answered. */
    void stop() const {
        known.in_flight = 0;
        known.todo.clear();
    }

    void begin_round(const std::vector<Task> &plan) const {
        known.todo = plan;
        known.rounds = rounds_so_far(known, desire, now) + 1;
        known.round_at = now;
        known.round_version = desire.version;
        known.round_session = known.session;
        known.in_sync_version.clear();  // to be proved again
        known.restarted = false;
        known.survived = false;
    }
};

}  // namespace

void absorb(Known &known, const Desire &desire, const Event &event, Time now) {
    std::visit(Absorber{known, desire, now}, event);
}

}  // namespace desired
