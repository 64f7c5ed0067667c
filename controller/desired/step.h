/**
 * How a device reaches its site's configuration, one command after the other.
 *
 * `next_step` says from what is known of a device what to do next, and in which state its
 * configuration is. It remembers nothing: it is called again after every event, at the time
 * it named, and after a start of the service, and says the same again. `absorb` alone changes
 * what is known. The caller keeps what is known after each `absorb`, and before it sends a
 * command: a stamp or an order that nobody remembers is the one thing that must not happen.
 *
 *     Next next = next_step(known, desire, now);
 *     if (next.order) {
 *         absorb(known, desire, Sent{*next.order}, now);
 *         keep(text_of(known));
 *         send(*next.order);         // later: absorb(…, Answered{…}) or absorb(…, TimedOut{…})
 *     } else if (next.at) {
 *         call_again(*next.at);
 *     }
 *
 * At its start a service absorbs `Offline` for every device: nothing is known of it before it is
 * heard. What was on its way is given up with that.
 *
 * Everything is pure: no clock, no thread, no chance. Different devices may be handled on
 * different threads.
 */
#ifndef CONTROLLER_DESIRED_STEP_H
#define CONTROLLER_DESIRED_STEP_H

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "controller/desired/members.h"

namespace desired {

using Time = int64_t; /**< seconds since the epoch */

/** One command to a device, or rather what it is for. */
enum class Task { bind, announce, name_server, ask, maintenance, ssids, radios, read };
NLOHMANN_JSON_SERIALIZE_ENUM(Task, {{Task::bind, "bind"},
                                    {Task::announce, "announce"},
                                    {Task::name_server, "name_server"},
                                    {Task::ask, "ask"},
                                    {Task::maintenance, "maintenance"},
                                    {Task::ssids, "ssids"},
                                    {Task::radios, "radios"},
                                    {Task::read, "read"}})

/* ---- what is wanted ---------------------------------------------------- */

/** What a device shall be; made anew from the stored documents whenever one changes. */
struct Desire {
    Json site;                      /**< canonical; null: the device belongs to none */
    Json configuration = nullptr;   /**< canonical, with the device's overrides merged into it;
                                         null: the site has none, or they do not fit together */
    std::string version;            /**< of the configuration: another text whenever site,
                                         configuration or overrides are others than before, such as
                                         "SITE/12/3"; changes of the site's own fields need none */
    std::string problem;            /**< why there is no configuration, a sentence for people */
    Json topology_server = nullptr; /**< request of `server_info`; null: devices keep theirs */
};

/* ---- what is known ----------------------------------------------------- */

/** A device's binding as it told it, or as it took it over from us. */
struct Binding {
    bool known = false;
    bool managed = false; /**< cloud management is on */
    bool local = false;   /**< management mode 2 */
    bool bound = false;
    int64_t project_id = 0;
    std::string cloud_id = {};
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Binding, known, managed, local, bound, project_id,
                                                cloud_id)

/** Everything that is known of a device. The service keeps it and looks at no member. Members
 *  named `session` tell on which connection of the device something was learnt, counted by
 *  `Known::session`; 0 is never. No pass phrase stands in it. */
struct Known {
    /** Presence. */
    bool online = false;
    Time since = 0;       /**< online or offline since then; 0: never seen */
    int64_t number = 0;   /**< of the connection, as the device counts; lower: it has restarted */
    int64_t since_ms = 0; /**< when the device made it, as it says */
    int64_t session = 0;
    int64_t identity_session = 0;
    int64_t binding_session = 0;
    Time restarting_at = 0; /**< the device said that it is about to; 0: it did not */

    /** Binding. The device tells it as it was when its agent started. */
    Binding heard;
    Binding given;          /**< since the device's start, by us; counts more than what it tells */
    Binding owned;          /**< the last one that was ours */
    bool announced = false; /**< it was told that the service is there, since its start */
    int64_t server_session = 0;

    /** Stamps: the highest that was ever given, and those that the device should have. */
    int64_t last_stamp = 0;
    int64_t wireless_stamp = 0;
    int64_t maintenance_stamp = 0;

    /** The last answer to `ask`, and what was said with it. */
    int64_t asked_session = 0;
    Time asked_at = 0;
    bool local = false; /**< managed locally */
    bool wireless_differs = false;
    bool maintenance_differs = false;
    std::string time_zone;
    int64_t region = 0;

    /** The last read-back. */
    int64_t read_session = 0;
    Time read_at = 0;
    std::string read_version;
    std::vector<Difference> differences;
    std::vector<Difference> substitutes; /**< values that devices put in place of ours */
    std::string in_sync_version;         /**< the last version that was proved */
    Time in_sync_at = 0;
    int64_t in_sync_session = 0;

    /** The push that is under way: commands that follow one another, `read` last. */
    std::vector<Task> todo;
    std::vector<Task> forced; /**< to be sent whatever the device says */
    bool power_sent = false;  /**< since the last read-back: the next one shows the bounds */

    /** The command on its way. */
    int64_t commands = 0;  /**< sent so far; number of the last one */
    int64_t in_flight = 0; /**< number of the command that is not answered; 0: none */
    Task in_flight_task = Task::ask;
    Time sent_at = 0;

    /** Rounds: pushes since the device was last in sync for a while. */
    int rounds = 0;
    Time round_at = 0;
    std::string round_version;
    int64_t round_session = 0;
    bool restarted = false; /**< since the last push, beyond doubt */
    bool survived = false;  /**< what was pushed last was there after a restart */

    /** Commands in a row that were not answered, or answered with a failure. */
    int fruitless = 0;
    Time fruitless_at = 0;
    bool silent = false; /**< the last one was not answered at all */
};

/** What is known, as one line of JSON, and back. Members that are missing have their initial
 *  values. Throws nlohmann::json::exception for a text that is none of these. */
std::string text_of(const Known &known);
Known known_of(const std::string &text);

/* ---- what to do -------------------------------------------------------- */

/** A command to send. */
struct Order {
    int64_t number = 0; /**< tells its answer from that of an earlier one */
    Task task = Task::ask;
    const char *family = "";
    int slot = 0;
    const char *name = "";
    Json request = Json::object();
    int seconds = 0;        /**< how long its answer may take */
    int64_t stamp = 0;      /**< a new stamp in it; 0: none */
    std::vector<Task> plan; /**< with the first command of a push: all its tasks */
};

enum class State { none, unknown, pending, applying, in_sync, differs, locally_managed };
NLOHMANN_JSON_SERIALIZE_ENUM(State, {{State::none, "none"},
                                     {State::unknown, "unknown"},
                                     {State::pending, "pending"},
                                     {State::applying, "applying"},
                                     {State::in_sync, "in_sync"},
                                     {State::differs, "differs"},
                                     {State::locally_managed, "locally_managed"}})

struct Next {
    State state = State::none;
    std::string reason = {}; /**< of a state that does not speak for itself, for people; or empty */
    std::vector<Difference> differences = {}; /**< with `differs`, and with `in_sync` those that the
                                              device substituted */
    std::optional<Order> order = {};
    std::optional<Time> at = {}; /**< without an order: when to call again at the latest; with a
                                 command in flight, when its time is over */
};

Next next_step(const Known &known, const Desire &desire, Time now);

/* ---- what happened ----------------------------------------------------- */

/** `status` says that the device is there; both numbers are the message's, `since` in whole
 *  milliseconds. The same message may come again and is nothing new then. */
struct Online {
    int64_t number = 0;
    int64_t since_ms = 0;
};
struct Offline {};

/** Uploads of these kinds; the documents as they came (what is no object counts as {}). */
struct IdentityHeard {};
struct BindingHeard {
    Json document;
};
struct ManageHeard {
    Json document;
};

/** The order of the last `next_step` is about to be sent. */
struct Sent {
    Order order;
};

/** Its answer; null where the device gave none (user property `result` -1, or no JSON). A name
 *  in it may be no UTF-8, which JSON forbids: that is to be replaced before. An answer to another
 * order than the one on its way changes nothing. */
struct Answered {
    int64_t number = 0;
    Json answer;
};

/** No answer came within the order's time, or it could not be sent. A command of which nothing
 *  is told for twice its time is given up anyway. */
struct TimedOut {
    int64_t number = 0;
};

/** A command that is no order of `next_step` was sent: a person's, a job's. The name is the
 *  agent's, the request as it was sent. */
struct Commanded {
    std::string name;
    Json request = {};
};

/** A person wants to know now; with `force`, that everything is sent again. */
struct Wished {
    bool force = false;
};

using Event = std::variant<Online, Offline, IdentityHeard, BindingHeard, ManageHeard, Sent,
                           Answered, TimedOut, Commanded, Wished>;

void absorb(Known &known, const Desire &desire, const Event &event, Time now);

/* ---- bounds ------------------------------------------------------------ */

/** Pushes that may follow one another; further ones wait, each twice as long. */
inline constexpr int quick_rounds = 3;
inline constexpr Time round_wait = Time{15} * 60;
inline constexpr Time longest_round_wait = Time{24} * 3600;

/** Rounds begin anew when the device was in sync and this long passed since the last one. */
inline constexpr Time quiet_time = 3600;

/** First wait after a command without a good answer; each further one is twice as long. */
inline constexpr Time fruitless_wait = 5;
inline constexpr Time longest_fruitless_wait = 3600;

/** Seconds for which identity and binding of a new connection are waited for. */
inline constexpr Time introduction_wait = 10;

/** Seconds within which a restart that the device told of begins. */
inline constexpr Time restart_wait = 120;

/** An answer to `ask` that is older counts no more for a push. */
inline constexpr Time ask_holds = 60;

/** A read-back and an answer to `ask` count for a day, less up to two hours. */
inline constexpr Time day = Time{24} * 3600;

}  // namespace desired

#endif
