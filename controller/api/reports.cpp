// What is kept of devices: reports, logs, alarms, samples, clients.

#include <algorithm>

#include "controller/api/routes.h"
#include "controller/store/fleet_tables.h"

namespace api {
namespace {

/** The last answer to a report, with "asked_at", and the one before; throws 404. */
awaitable<Json> kept_report(Context &context, const char *name) {
    const std::string serial = device_of(context).serial;
    const Json row = co_await query(
        context.service, [&](store::Sql &sql) { return store::report(sql, serial, name); });
    if (row.is_null()) {
        throw Problem{404, "the device has not given this report yet"};
    }
    co_return row;
}

awaitable<http::Response> whole_report(Context &context, const char *name) {
    const Json row = co_await kept_report(context, name);
    co_return json(row);
}

/** A part of the last answer, found by a JSON pointer; null where it is missing. */
awaitable<http::Response> part(Context &context, const char *name, const char *as,
                               const char *pointer) {
    const Json row = co_await kept_report(context, name);
    const Json::json_pointer at(pointer);
    const Json value = row["answer"].contains(at) ? row["answer"][at] : Json();
    co_return json({{"asked_at", row["asked_at"]}, {as, value}});
}

}  // namespace

awaitable<http::Response> get_status(Context &context) {
    return whole_report(context, "status");
}

awaitable<http::Response> get_clients(Context &context) {
    return part(context, "status", "items", "/user_list");
}

awaitable<http::Response> get_radios(Context &context) {
    return part(context, "status", "items", "/ap_status/rf_rule");
}

awaitable<http::Response> get_neighbors(Context &context) {
    return part(context, "neighbors", "items", "/neighbor_entry_s");
}

awaitable<http::Response> get_topology(Context &context) {
    return whole_report(context, "topology");
}

awaitable<http::Response> get_config(Context &context) {
    return whole_report(context, "config");
}

awaitable<http::Response> get_logs(Context &context) {
    const std::string serial = device_of(context).serial;
    const std::string kind = context.query("kind");
    const store::Page page = context.page();
    const Json rows = co_await query(
        context.service, [&](store::Sql &sql) { return store::logs(sql, serial, kind, page); });
    co_return rows_page(rows, page);
}

awaitable<http::Response> alarm_page(Context &context, std::string serial) {
    const std::string state = context.query("state");
    if (!state.empty() && state != "open" && state != "acknowledged") {
        throw Problem{400, "state must be open or acknowledged", "state"};
    }
    const store::Page page = context.page();
    const Json rows = co_await query(
        context.service, [&](store::Sql &sql) { return store::alarms(sql, serial, state, page); });
    co_return rows_page(rows, page);
}

awaitable<http::Response> get_device_alarms(Context &context) {
    return alarm_page(context, device_of(context).serial);
}

awaitable<http::Response> list_alarms(Context &context) {
    return alarm_page(context, "");
}

awaitable<http::Response> acknowledge(Context &context) {
    const long long id = context.id();
    const Json alarm = co_await query(context.service, [&](store::Sql &sql) {
        return store::acknowledge_alarm(sql, id, context.user, fleet::wall_now());
    });
    if (alarm.is_null()) {
        throw Problem{404, "there is no alarm of this id"};
    }
    context.service.fleet.feed().publish("alarm", alarm);
    co_return json(alarm);
}

awaitable<http::Response> get_samples(Context &context) {
    const std::string serial = device_of(context).serial;
    const std::string metric = context.query("metric");
    if (std::ranges::find(store::metrics(), metric) == store::metrics().end()) {
        std::string known;
        for (const std::string &name : store::metrics()) {
            known += (known.empty() ? "" : ", ") + name;
        }
        throw Problem{400, "metric must be one of " + known, "metric"};
    }
    constexpr long long end_of_time = 4'000'000'000;
    store::Span span;
    span.to = context.number("to", fleet::wall_now() + 1, 0, end_of_time);
    span.from = context.number("from", span.to - 86400, 0, end_of_time);
    span.step = context.number("step", 60, 1, 31 * 86400);
    const Json values = co_await query(context.service, [&](store::Sql &sql) {
        return store::samples(sql, serial, metric, span);
    });
    co_return json({{"metric", metric}, {"step", span.step}, {"values", values}});
}

awaitable<http::Response> find_clients(Context &context) {
    const std::string begin = context.query("q");
    if (begin.size() < 3 || begin.size() > 64) {
        throw Problem{400, "q must be at least 3 characters of a MAC or IP address", "q"};
    }
    const auto limit = static_cast<int>(context.number("limit", 100, 1, 1000));
    const Json rows = co_await query(
        context.service, [&](store::Sql &sql) { return store::find_clients(sql, begin, limit); });
    co_return json({{"items", rows}});
}

}  // namespace api
