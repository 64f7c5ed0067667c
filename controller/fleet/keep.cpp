// What is kept of the answers and uploads of devices.

#include <charconv>

#include "controller/fleet/fleet.h"
#include "controller/store/fleet_tables.h"

namespace fleet {
namespace {

constexpr long long client_every_s = 300; /**< how often one that stays is written */
constexpr size_t longest_event = 1024;    /**< bytes of a log line or alarm that are kept */

Json member(const Json &object, const char *name) {
    const auto at = object.is_object() ? object.find(name) : object.end();
    return at == object.end() ? Json() : *at;
}

std::string text(const Json &object, const char *name) {
    const Json value = member(object, name);
    return value.is_string() ? value.get<std::string>() : std::string();
}

/** A number, also one that a report gives as a text; null for none. */
Json figure(const Json &value) {
    if (value.is_number()) {
        return value.get<double>();
    }
    double number = 0;
    const std::string digits = value.is_string() ? value.get<std::string>() : "";
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return digits.empty() || end.ec != std::errc() ? Json() : Json(number);
}

/** A text of a device as JSON can hold it, and not longer than is kept. */
std::string clean(const std::string &line) {
    const std::string whole =
        Json(line.substr(0, longest_event)).dump(-1, ' ', false, Json::error_handler_t::replace);
    return Json::parse(whole).get<std::string>();
}

/** Pass phrases of a report are not kept in the open. */
void hide_pass_phrases(Json &value) {
    if (value.is_object() && value.contains("passwd")) {
        value["passwd"] = nullptr;
    }
    for (Json &inner : value) {
        if (inner.is_structured()) {
            hide_pass_phrases(inner);
        }
    }
}

constexpr const char *band_of(int access_type) {
    return access_type == 0 ? "2.4" : "5";
}

}  // namespace

void Fleet::take_upload(Device &device, const std::string &kind, const std::string &upload) {
    const Json json = Json::parse(upload, nullptr, false);
    if (kind == "identity" || kind == "binding") {
        Json &known = kind == "identity" ? device.identity : device.binding;
        if (json.is_object() && json != known) {
            known = json;
            keep(device);
            feed_.publish("device", {{"serial", device.serial}});
        }
    } else if (kind == "alarm") {
        keep_alarms(device.serial, member(json, "alarm"));
    } else if (kind == "system_log") {
        keep_system_log(device.serial, member(json, "sys_log"));
    } else if (kind == "running_log") {
        const long long now = wall_now();
        const store::LogLine line{"running", std::to_string(now), "", clean(upload)};
        database_.post([origin = store::Origin{device.serial, now}, line](store::Sql &sql) {
            store::save_log(sql, origin, line);
        });
    }
    on_change(device.serial, kind, upload);
}

void Fleet::keep_alarms(const std::string &serial, const Json &alarms) {
    const auto news = std::make_shared<Json>(Json::array());
    const long long now = wall_now();
    for (const Json &alarm : alarms) {
        const Json told = member(alarm, "timestamp");
        const long long at = told.is_number_integer() ? told.get<long long>() : now;
        database_.post([=, event = clean(text(alarm, "event"))](store::Sql &sql) {
            const Json row = store::save_alarm(sql, {serial, now}, "device", event, at);
            if (!row.is_null()) {
                news->push_back(row);
            }
        });
    }
    database_.post([](store::Sql &) {},
                   [this, news](const std::exception_ptr &) {
                       post_([this, news] {
                           for (const Json &alarm : *news) {
                               feed_.publish("alarm", alarm);
                           }
                       });
                   });
}

/** The agent sends its whole list again after each restart: known lines are left. */
void Fleet::keep_system_log(const std::string &serial, const Json &lines) {
    std::vector<store::LogLine> kept;
    for (const Json &line : lines) {
        kept.push_back({"system", clean(text(line, "time")), clean(text(line, "event_type")),
                        clean(text(line, "event"))});
    }
    database_.post([origin = store::Origin{serial, wall_now()}, kept](store::Sql &sql) {
        for (const store::LogLine &line : kept) {
            store::save_log(sql, origin, line);
        }
    });
}

void Fleet::keep_answer(const std::string &serial, const Report &report,
                        const std::string &answer) {
    Json json = Json::parse(answer, nullptr, false);
    if (!json.is_object()) {
        return;
    }
    Device &device = devices_.at(serial);
    if (report.name == "status") {
        keep_status(device, json);
    } else if (report.name == "statistics") {
        const Json throughput = member(json, "throughput");
        add_figures(device, {{"up_traffic", figure(member(throughput, "up"))},
                             {"down_traffic", figure(member(throughput, "down"))}});
    }
    hide_pass_phrases(json);
    database_.post(
        [origin = store::Origin{serial, wall_now()}, name = std::string(report.name),
         text = json.dump()](store::Sql &sql) { store::save_report(sql, origin, name, text); });
    feed_.publish("report", {{"serial", serial}, {"report", report.name}});
}

void Fleet::add_figures(Device &device, const Json &figures) {
    device.figures.update(figures);
    database_.post([origin = store::Origin{device.serial, wall_now()}, figures](store::Sql &sql) {
        store::save_sample(sql, origin, figures);
    });
}

void Fleet::keep_status(Device &device, const Json &answer) {
    const Json run = member(answer, "run_status");
    double bands[2] = {0, 0};
    for (const Json &station : member(answer, "user_list")) {
        bands[member(station, "access_type") == 0 ? 0 : 1] += 1;
    }
    add_figures(device, {{"cpu", figure(member(run, "cpu_info"))},
                         {"memory", figure(member(run, "mem_info"))},
                         {"clients", figure(member(run, "user_num"))},
                         {"clients_24", bands[0]},
                         {"clients_5", bands[1]},
                         {"up_rate", figure(member(run, "up_rate"))},
                         {"down_rate", figure(member(run, "down_rate"))}});
    keep_stations(device, member(answer, "user_list"));
}

/** Writes clients that are new, moved, gone, or were written long ago. */
void Fleet::keep_stations(Device &device, const Json &list) {
    const long long now = wall_now();
    std::vector<Json> rows;
    const auto add = [&](const auto &key, const Station &station, long long last_seen) {
        const auto &[mac, ssid, band] = key;
        rows.push_back({{"mac", mac},
                        {"serial", device.serial},
                        {"ssid", ssid},
                        {"band", band},
                        {"ip", station.ip},
                        {"first_seen", station.first_seen},
                        {"last_seen", last_seen}});
    };
    auto before = std::exchange(device.stations, {});
    for (const Json &row : list) {
        std::string mac = clean(text(row, "user_mac"));
        std::ranges::transform(mac, mac.begin(), [](unsigned char c) { return tolower(c); });
        const std::tuple key(mac, clean(text(row, "assoc_ssid")),
                             std::string(band_of(member(row, "access_type") == 0 ? 0 : 1)));
        Station station{clean(text(row, "ip")), now, 0};
        if (const auto known = before.extract(key)) {
            station.first_seen = known.mapped().first_seen;
            station.kept_at = known.mapped().ip == station.ip ? known.mapped().kept_at : 0;
        }
        if (now >= station.kept_at + client_every_s) {
            station.kept_at = now;
            add(key, station, now);
        }
        device.stations[key] = station;
    }
    for (const auto &[key, station] : before) {
        if (station.kept_at < device.last_seen) {
            add(key, station, std::max(station.kept_at, now - schedule_[0]));
        }
    }
    if (!rows.empty()) {
        database_.post([rows](store::Sql &sql) {
            for (const Json &row : rows) {
                store::save_client(sql, row);
            }
        });
    }
}

}  // namespace fleet
