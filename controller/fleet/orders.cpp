#include "controller/fleet/orders.h"

#include "controller/store/people_tables.h"
#include "tools/nxctl_commands.h"

namespace fleet {
namespace {

constexpr const char *states[] = {"answered", "refused", "offline", "unknown"};

Json null_or(const std::string &text) {
    return text.empty() ? Json() : Json(text);
}

}  // namespace

Orders::Orders(store::Database &database, const store::Vault &vault, Fleet &fleet, Fleet::Post post)
    : database_(database), vault_(vault), fleet_(fleet), post_(std::move(post)) {
    Json rows;
    database.run([&](store::Sql &sql) {
        store::orphan_commands(sql);
        rows = store::queued_commands(sql);
    });
    for (const Json &row : rows) {
        waiting_[row["serial"]].push_back(
            {row["id"].get<long long>(), row["command"], vault.unseal(row["sealed"])});
    }
}

void Orders::order(const Command &command, Hear hear) {
    const Device *device = fleet_.find(command.serial);
    const bool waits = device == nullptr || !device->is_online();
    if (waits && !command.may_wait) {
        hear(Fate::offline, nullptr);
        return;
    }
    const Json row = {{"serial", command.serial},
                      {"command", command.name},
                      {"request", command.shown},
                      {"sealed", command.may_wait ? Json(vault_.seal(command.request)) : Json()},
                      {"ordered_by", command.user},
                      {"ordered_at", wall_now()},
                      {"state", waits ? "queued" : "sent"},
                      {"idempotency_key", null_or(command.key)}};
    const auto kept = std::make_shared<Json>();
    const auto id = std::make_shared<long long>();
    database_.post(
        [row, kept, id](store::Sql &sql) {
            *id = store::save_command(sql, row);
            *kept = *id != 0
                        ? store::command(sql, *id)
                        : store::command_of_key(sql, row["ordered_by"], row["idempotency_key"]);
        },
        [=, this](const std::exception_ptr &failure) {
            post_([=, this] {
                if (failure) {
                    hear(Fate::not_kept, nullptr);
                } else if (*id == 0) {
                    hear(Fate::known, *kept);
                } else if (waits) {
                    waiting_[command.serial].push_back({*id, command.name, command.request});
                    hear(Fate::waits, *kept);
                    if (const Device *now = fleet_.find(command.serial);
                        now != nullptr && now->is_online()) {
                        device_came(command.serial);  // meanwhile
                    }
                } else {
                    send(*id, command, hear);
                }
            });
        });
}

void Orders::send(long long id, const Command &command, const Hear &hear) {
    fleet_.ask(command.serial,
               {.target = nxctl::find_command(command.name)->target(),
                .request = command.request,
                .patience_s = command.patience_s,
                .hear = [=, this](const Outcome &outcome) { finish(id, command, outcome, hear); }},
               true);
}

void Orders::finish(long long id, const Command &command, const Outcome &outcome,
                    const Hear &hear) {
    if (outcome.end == Outcome::End::offline && command.may_wait) {
        waiting_[command.serial].push_back({id, command.name, command.request});
        database_.post([id](store::Sql &sql) { store::move_command(sql, id, "sent", "queued"); });
        tell(id, Fate::waits, hear);
        return;
    }
    const bool answered = outcome.end == Outcome::End::answered;
    const Json answer = Json::parse(outcome.answer, nullptr, false);
    const Json end = {
        {"state", states[static_cast<size_t>(outcome.end)]},
        {"resp_code",
         answer.is_object() && answer.contains("resp_code") ? answer["resp_code"] : Json()},
        {"answer", answered ? Json(outcome.answer.substr(0, 64 * 1024)) : Json()},
        {"duration_ms", outcome.duration_ms}};
    if (answered) {
        on_commanded(command);
    }
    fleet_.feed().publish("command", {{"serial", command.serial},
                                      {"id", id},
                                      {"command", command.name},
                                      {"state", end["state"]}});
    database_.post([id, end](store::Sql &sql) { store::finish_command(sql, id, end); });
    tell(id, outcome.end == Outcome::End::offline ? Fate::offline : Fate::done, hear);
}

void Orders::tell(long long id, Fate fate, const Hear &hear) {
    const auto row = std::make_shared<Json>();
    database_.post([id, row](store::Sql &sql) { *row = store::command(sql, id); },
                   [=, this](const std::exception_ptr &) { post_([=] { hear(fate, *row); }); });
}

void Orders::device_came(const std::string &serial) {
    const auto waiting = waiting_.extract(serial);
    if (!waiting) {
        return;
    }
    for (const Waiting &one : waiting.mapped()) {
        Command command;
        command.serial = serial;
        command.name = one.name;
        command.request = one.request;
        command.may_wait = true;
        const auto mine = std::make_shared<bool>(false);
        database_.post(
            [id = one.id, mine](store::Sql &sql) {
                *mine = store::move_command(sql, id, "queued", "sent");
            },
            [=, this, id = one.id](const std::exception_ptr &) {
                post_([=, this] {
                    if (*mine) {
                        send(id, command, [](Fate, const Json &) {});
                    }
                });
            });
    }
}

void Orders::cancelled(const std::string &serial, long long id) {
    std::erase_if(waiting_[serial], [id](const Waiting &one) { return one.id == id; });
}

}  // namespace fleet
