#include "controller/store/fleet_tables.h"

#include <algorithm>

namespace store {
namespace {

constexpr int hour = 3600;

/** "cpu, memory, ..." with each name through a pattern in which "#" stands for it. */
std::string each_metric(const std::string &pattern) {
    std::string list;
    for (const std::string &metric : metrics()) {
        list += list.empty() ? "" : ", ";
        for (const char letter : pattern) {
            letter == '#' ? list += metric : list += letter;
        }
    }
    return list;
}

void parse(Json &row, std::initializer_list<const char *> columns) {
    for (const char *column : columns) {
        row[column] = Json::parse(row[column].get<std::string>(), nullptr, false);
    }
}

}  // namespace

Json devices(Sql &sql) {
    Json rows = sql.rows("SELECT * FROM devices");
    for (Json &row : rows) {
        parse(row, {"tags", "identity", "binding"});
    }
    return rows;
}

void save_device(Sql &sql, const Json &device) {
    sql.run(
        "INSERT INTO devices (serial, name, tags, site, identity, binding, first_seen, last_seen, "
        "version) VALUES (:serial, :name, :tags, :site, :identity, :binding, :first_seen, "
        ":last_seen, :version) ON CONFLICT (serial) DO UPDATE SET name = excluded.name, "
        "tags = excluded.tags, site = excluded.site, identity = excluded.identity, "
        "binding = excluded.binding, last_seen = excluded.last_seen, version = excluded.version",
        device);
}

void forget_device(Sql &sql, const std::string &serial) {
    for (const char *table : {"reports", "samples", "clients", "alarms", "logs", "devices"}) {
        sql.run(std::string("DELETE FROM ") + table + " WHERE serial = :serial",
                {{"serial", serial}});
    }
}

void save_report(Sql &sql, const Origin &origin, const std::string &report,
                 const std::string &answer) {
    sql.run(
        "INSERT INTO reports (serial, report, asked_at, answer) VALUES (:serial, :report, :at, "
        ":answer) ON CONFLICT (serial, report) DO UPDATE SET previous_asked_at = "
        "reports.asked_at, previous_answer = reports.answer, asked_at = excluded.asked_at, "
        "answer = excluded.answer",
        {{"serial", origin.serial}, {"report", report}, {"at", origin.at}, {"answer", answer}});
}

Json report(Sql &sql, const std::string &serial, const std::string &report) {
    Json row = sql.row(
        "SELECT asked_at, answer, previous_asked_at, previous_answer FROM reports WHERE serial = "
        ":serial AND report = :report",
        {{"serial", serial}, {"report", report}});
    if (!row.is_null()) {
        parse(row, {"answer"});
        if (!row["previous_answer"].is_null()) {
            parse(row, {"previous_answer"});
        }
    }
    return row;
}

const std::vector<std::string> &metrics() {
    static const std::vector<std::string> names = {"cpu",        "memory",     "clients",
                                                   "clients_24", "clients_5",  "up_rate",
                                                   "down_rate",  "up_traffic", "down_traffic"};
    return names;
}

void save_sample(Sql &sql, const Origin &origin, const Json &figures) {
    Json values = {{"serial", origin.serial}, {"at", origin.at}};
    for (const std::string &metric : metrics()) {
        const Json figure = figures.value(metric, Json());
        values[metric] = figure.is_number() ? Json(figure.get<double>()) : Json();
    }
    sql.run("INSERT INTO samples (serial, at, resolution, " + each_metric("#") +
                ") VALUES (:serial, :at, 0, " + each_metric(":#") +
                ") ON CONFLICT (serial, resolution, at) DO UPDATE SET " +
                each_metric("# = COALESCE(excluded.#, samples.#)"),
            values);
}

Json samples(Sql &sql, const std::string &serial, const std::string &metric, const Span &span) {
    const Json rows = sql.rows(
        "SELECT (at / :step) * :step AS at, AVG(" + metric +
            ") AS value FROM samples WHERE serial = :serial AND at >= :begin AND at < :finish "
            "AND " +
            metric +
            " IS NOT NULL AND (resolution = 0 OR at < (SELECT COALESCE(MIN(at), :finish) FROM "
            "samples WHERE serial = :serial AND resolution = 0)) GROUP BY 1 ORDER BY 1 LIMIT 11000",
        {{"step", span.step}, {"serial", serial}, {"begin", span.from}, {"finish", span.to}},
        {"at", "value"});
    Json pairs = Json::array();
    for (const Json &row : rows) {
        pairs.push_back({row["at"], row["value"]});
    }
    return pairs;
}

void tidy(Sql &sql, long long now, const Retention &retention) {
    const long long whole_hours = (now - retention.raw_samples) / hour * hour;
    sql.run("INSERT INTO samples (serial, at, resolution, " + each_metric("#") +
                ") SELECT serial, (at / 3600) * 3600, 3600, " + each_metric("AVG(#)") +
                " FROM samples WHERE resolution = 0 AND at < :before GROUP BY 1, 2 ON CONFLICT "
                "(serial, "
                "resolution, at) DO NOTHING",
            {{"before", whole_hours}});
    sql.run("DELETE FROM samples WHERE resolution = 0 AND at < :before", {{"before", whole_hours}});
    sql.run("DELETE FROM samples WHERE resolution = 3600 AND at < :before",
            {{"before", now - retention.hourly_samples}});
    const Json old = {{"before", now - retention.history}};
    sql.run("DELETE FROM clients WHERE last_seen < :before", old);
    sql.run("DELETE FROM logs WHERE received_at < :before", old);
    sql.run("DELETE FROM alarms WHERE state <> 'open' AND received_at < :before", old);
    sql.run("DELETE FROM commands WHERE state <> 'queued' AND ordered_at < :before", old);
    sql.run("DELETE FROM audit WHERE at < :before", old);
    sql.run("DELETE FROM credentials WHERE expires_at < :now", {{"now", now}});
}

void save_client(Sql &sql, const Json &client) {
    sql.run(
        "INSERT INTO clients (mac, serial, ssid, band, ip, first_seen, last_seen) VALUES (:mac, "
        ":serial, :ssid, :band, :ip, :first_seen, :last_seen) ON CONFLICT (mac, serial, ssid, "
        "band, first_seen) DO UPDATE SET ip = excluded.ip, last_seen = excluded.last_seen",
        client);
}

Json find_clients(Sql &sql, const std::string &begin, int limit) {
    std::string pattern;
    for (const char letter : begin) {
        pattern += letter == '%' || letter == '_' || letter == '\\' ? "\\" : "";
        pattern += static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    }
    return sql.rows(
        "SELECT mac, serial, ssid, band, ip, first_seen, last_seen FROM clients WHERE "
        "mac LIKE :pattern ESCAPE '\\' OR ip LIKE :pattern ESCAPE '\\' ORDER BY last_seen DESC, "
        "mac LIMIT :most",
        {{"pattern", pattern + "%"}, {"most", limit}});
}

Json save_alarm(Sql &sql, const Origin &origin, const std::string &kind, const std::string &event,
                long long at) {
    return sql.row(
        "INSERT INTO alarms (serial, kind, event, at, received_at, state) VALUES (:serial, :kind, "
        ":event, :at, :now, 'open') ON CONFLICT DO NOTHING RETURNING *",
        {{"serial", origin.serial},
         {"kind", kind},
         {"event", event},
         {"at", at},
         {"now", origin.at}});
}

Json alarms(Sql &sql, const std::string &serial, const std::string &state, const Page &page) {
    Json values = {{"below", page.below}, {"most", page.limit}};
    std::string where;
    for (const auto &[column, text] : {std::pair("serial", serial), std::pair("state", state)}) {
        if (!text.empty()) {
            where += std::string(" AND ") + column + " = :" + column;
            values[column] = text;
        }
    }
    return sql.rows("SELECT * FROM alarms WHERE (:below = 0 OR id < :below)" + where +
                        " ORDER BY id DESC LIMIT :most",
                    values);
}

Json acknowledge_alarm(Sql &sql, long long id, const std::string &user, long long now) {
    sql.run(
        "UPDATE alarms SET state = 'acknowledged', acknowledged_by = :name, acknowledged_at = "
        ":now WHERE id = :id AND state = 'open'",
        {{"name", user}, {"now", now}, {"id", id}});
    return sql.row("SELECT * FROM alarms WHERE id = :id", {{"id", id}});
}

void save_log(Sql &sql, const Origin &origin, const LogLine &line) {
    sql.run(
        "INSERT INTO logs (serial, kind, time, event_type, event, received_at) VALUES (:serial, "
        ":kind, :time, :event_type, :event, :now) ON CONFLICT DO NOTHING",
        {{"serial", origin.serial},
         {"kind", line.kind},
         {"time", line.time},
         {"event_type", line.event_type},
         {"event", line.event},
         {"now", origin.at}});
}

Json logs(Sql &sql, const std::string &serial, const std::string &kind, const Page &page) {
    Json values = {{"serial", serial}, {"below", page.below}, {"most", page.limit}};
    std::string where;
    if (!kind.empty()) {
        where = " AND kind = :kind";
        values["kind"] = kind;
    }
    return sql.rows(
        "SELECT id, kind, time, event_type, event, received_at FROM logs WHERE serial "
        "= :serial AND (:below = 0 OR id < :below)" +
            where + " ORDER BY id DESC LIMIT :most",
        values);
}

}  // namespace store
