/**
 * What is kept of devices. Times are seconds since 1970.
 */
#ifndef CONTROLLER_STORE_FLEET_TABLES_H
#define CONTROLLER_STORE_FLEET_TABLES_H

#include <string>
#include <vector>

#include "controller/store/sql.h"

namespace store {

/** Whose answers and uploads something is, and when it came. */
struct Origin {
    std::string serial;
    long long at = 0;
};

/** All devices with the members of their table; tags, identity and binding as JSON. */
Json devices(Sql &sql);

/** Writes all of a device: `device` has the members of the table but `overrides` and
 *  `knowledge`. */
void save_device(Sql &sql, const Json &device);
void forget_device(Sql &sql, const std::string &serial);

/** Keeps an answer; the last one becomes the previous one. */
void save_report(Sql &sql, const Origin &origin, const std::string &report,
                 const std::string &answer);

/** {"asked_at", "answer", "previous_asked_at", "previous_answer"}; null for none. */
Json report(Sql &sql, const std::string &serial, const std::string &report);

/** The figures that `samples` keeps, by the names of its columns. */
const std::vector<std::string> &metrics();

/** Keeps figures of a moment; those that are not named stay as they are. */
void save_sample(Sql &sql, const Origin &origin, const Json &figures);

/** Averages of one figure over steps: [[at, value], ...], at most 11,000. */
struct Span {
    long long from = 0, to = 0, step = 60;
};
Json samples(Sql &sql, const std::string &serial, const std::string &metric, const Span &span);

/** How long things are kept, seconds. */
struct Retention {
    long long raw_samples = 7 * 86400LL;
    long long hourly_samples = 365 * 86400LL;
    long long history = 90 * 86400LL; /**< clients, logs, commands, audit, closed alarms */
};

/** Makes hourly samples of whole hours and removes what is too old. */
void tidy(Sql &sql, long long now, const Retention &retention);

/** Keeps that a client was there; all of its row but `last_seen` and `ip` is its key. */
void save_client(Sql &sql, const Json &client);

/** Clients whose MAC or IP address begins with a text, latest first. */
Json find_clients(Sql &sql, const std::string &begin, int limit);

/** Keeps an alarm; the new row, or null for one that is known. */
Json save_alarm(Sql &sql, const Origin &origin, const std::string &kind, const std::string &event,
                long long at);

/** A page of rows, newest first, below an id (0: from the newest). Empty texts stand for
 *  all. */
struct Page {
    long long below = 0;
    int limit = 100;
};
Json alarms(Sql &sql, const std::string &serial, const std::string &state, const Page &page);

/** The alarm as it is then; null for none. */
Json acknowledge_alarm(Sql &sql, long long id, const std::string &user, long long now);

/** A line of a log; one that is known already is left. */
struct LogLine {
    std::string kind, time, event_type, event;
};
void save_log(Sql &sql, const Origin &origin, const LogLine &line);
Json logs(Sql &sql, const std::string &serial, const std::string &kind, const Page &page);

}  // namespace store

#endif
