// The fleet in figures.

#include <algorithm>

#include "controller/api/routes.h"

namespace api {
namespace {

/** [{"name", "devices"}], the most frequent first. */
Json spread(const std::map<std::string, int> &counts) {
    std::vector<std::pair<std::string, int>> rows(counts.begin(), counts.end());
    std::ranges::stable_sort(rows, std::ranges::greater(), &std::pair<std::string, int>::second);
    Json list = Json::array();
    for (const auto &[name, devices] : rows) {
        list.push_back({{"name", name}, {"devices", devices}});
    }
    return list;
}

}  // namespace

awaitable<http::Response> get_summary(Context &context) {
    std::map<std::string, int> states, config_states, models, firmware;
    double clients = 0;
    for (const auto &[serial, device] : context.service.fleet.devices()) {
        ++states[fleet::name_of(device.presence.state)];
        ++config_states[device.config_state];
        ++models[device.model()];
        ++firmware[device.firmware()];
        const auto count = device.figures.find("clients");
        if (device.is_online() && count != device.figures.end() && count->is_number()) {
            clients += count->get<double>();
        }
    }
    const Json open = co_await query(context.service, [](store::Sql &sql) {
        return sql.row("SELECT COUNT(*) AS open FROM alarms WHERE state = 'open'", {}, {"open"});
    });
    co_return json({{"devices", context.service.fleet.devices().size()},
                    {"states", states},
                    {"config_states", config_states},
                    {"models", spread(models)},
                    {"firmware", spread(firmware)},
                    {"clients", static_cast<long long>(clients)},
                    {"open_alarms", open["open"]}});
}

}  // namespace api
