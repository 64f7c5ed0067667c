// Commands to a device by people.

#include <algorithm>

#include "controller/api/routes.h"
#include "controller/api/wait.h"
#include "controller/store/people_tables.h"
#include "tools/nxctl_check.h"
#include "tools/nxctl_commands.h"

namespace api {
namespace {

using Type = Json::value_t;
constexpr size_t most_waiting = 32; /**< commands of a device, questions of the service too */

/** The text to send: of a request that is a text the text itself. */
std::string request_of(const Context &context) {
    const Json request = context.body.value("request", Json());
    if (request.is_null()) {
        return {};
    }
    return request.is_string() ? request.get<std::string>() : request.dump();
}

void hide_secrets(Json &value) {
    for (const char *name : {"passwd", "password", "passphrase"}) {
        if (value.is_object() && value.contains(name)) {
            value[name] = nullptr;
        }
    }
    for (Json &inner : value) {
        if (inner.is_structured()) {
            hide_secrets(inner);
        }
    }
}

/** A request as the history shows it: a configuration file is not shown at all. */
std::string shown(Json request) {
    if (request.is_string()) {
        return Json("(" + std::to_string(request.get_ref<const std::string &>().size()) + " bytes)")
            .dump();
    }
    hide_secrets(request);
    return request.dump();
}

const nxctl::Command &known_command(const Context &context) {
    const std::string name = context.body["command"];
    const nxctl::Command *command = nxctl::find_command(name);
    if (command == nullptr) {
        throw Problem{400, "there is no such command", "/command"};
    }
    const std::string faults = nxctl::faults_of(*command, request_of(context));
    if (!faults.empty()) {
        throw Problem{422, faults, "/request"};
    }
    return *command;
}

Json shown_command(Json row) {
    row.erase("sealed");
    row.erase("idempotency_key");
    for (const char *name : {"request", "answer"}) {
        if (row[name].is_string()) {
            const Json parsed = Json::parse(row[name].get<std::string>(), nullptr, false);
            row[name] = parsed.is_discarded() ? row[name] : parsed;
        }
    }
    if (row["answer"].is_structured()) {
        hide_secrets(row["answer"]);
    }
    return row;
}

http::Response response_of_row(const Json &row) {
    const Json command = shown_command(row);
    const std::string state = command["state"];
    const Json more = {{"command", command}};
    if (state == "answered") {
        return json(command);
    }
    if (state == "queued" || state == "sent") {
        return json(command, 202);
    }
    if (state == "unknown") {
        throw Problem{504, "no answer came: whether it was carried out is not known", "", more};
    }
    if (state == "refused") {
        throw Problem{422, "the device cannot read this request, or has no such command",
                      "/request", more};
    }
    throw Problem{409, state == "cancelled" ? "it was taken back" : "the device is not online", "",
                  more};
}

awaitable<Json> kept_command(Context &context) {
    const long long id = context.id();
    const Json row =
        co_await query(context.service, [&](store::Sql &sql) { return store::command(sql, id); });
    if (row.is_null() || row["serial"] != context.param("serial")) {
        throw Problem{404, "there is no command of this id"};
    }
    co_return row;
}

}  // namespace

awaitable<http::Response> post_command(Context &context) {
    context.expect({{"command", Type::string, true, 64},
                    {"request", Type::discarded},
                    {"queue", Type::boolean}});
    fleet::Command command;
    command.serial = context.param("serial");
    device_of(context);
    command.name = known_command(context).name;
    command.request = request_of(context);
    command.shown = shown(context.body.value("request", Json()));
    command.user = context.user;
    command.key = context.request.header("idempotency-key");
    command.may_wait = context.body.value("queue", false);
    context.audit_detail = command.name;
    if (command.key.size() > 128) {
        throw Problem{400, "an Idempotency-Key takes at most 128 bytes", "Idempotency-Key"};
    }
    if (context.service.fleet.waiting(command.serial) >= most_waiting) {
        throw Problem{429, "too many commands wait for this device"};
    }
    fleet::Orders::Fate fate = fleet::Orders::Fate::offline;
    Json row;
    co_await wait_for([&](std::function<void()> done) {
        context.service.orders.order(
            command, [&fate, &row, done](fleet::Orders::Fate ended, const Json &kept) {
                fate = ended;
                row = kept;
                done();
            });
    });
    if (fate == fleet::Orders::Fate::not_kept) {
        throw Problem{503, "the database does not take the command, which was not sent"};
    }
    if (row.is_null()) {
        throw Problem{409, "the device is not online"};
    }
    if (fate == fleet::Orders::Fate::known &&
        (row["command"] != command.name || row["serial"] != command.serial)) {
        throw Problem{422, "this Idempotency-Key was used for another command", "Idempotency-Key"};
    }
    co_return response_of_row(row);
}

awaitable<http::Response> list_commands(Context &context) {
    const std::string serial = device_of(context).serial;
    const store::Page page = context.page();
    Json rows = co_await query(context.service,
                               [&](store::Sql &sql) { return store::commands(sql, serial, page); });
    for (Json &row : rows) {
        row = shown_command(row);
    }
    co_return rows_page(rows, page);
}

awaitable<http::Response> get_command(Context &context) {
    const Json row = co_await kept_command(context);
    co_return json(shown_command(row));
}

awaitable<http::Response> cancel_command(Context &context) {
    const Json row = co_await kept_command(context);
    const long long id = row["id"].get<long long>();
    const Json cancelled = co_await query(context.service, [&](store::Sql &sql) {
        return Json(store::move_command(sql, id, "queued", "cancelled"));
    });
    if (!cancelled.get<bool>()) {
        throw Problem{409, "only a command that still waits can be cancelled"};
    }
    context.service.orders.cancelled(row["serial"], id);
    http::Response response;
    response.status = 204;
    co_return response;
}

}  // namespace api
