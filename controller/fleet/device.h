/**
 * What is known of a device while the service runs.
 */
#ifndef CONTROLLER_FLEET_DEVICE_H
#define CONTROLLER_FLEET_DEVICE_H

#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace fleet {

using Json = nlohmann::json;

/** A report that a device gives on order, and under which name its answers are kept. */
struct Report {
    std::string_view name;
    std::string_view command;
    int every_s; /**< 0: only when somebody orders it */
};

inline constexpr std::array reports = {
    Report{"status", "status_upload", 60},
    Report{"statistics", "statistic_upload", 300},
    Report{"topology", "topo_info", 300},
    Report{"config", "config_upload", 86400},
    Report{"neighbors", "radio_optimiza_upload", 0},  // it scans, which clients feel
};

enum class State { unknown, offline, online };

inline const char *name_of(State state) {
    constexpr const char *names[] = {"unknown", "offline", "online"};
    return names[static_cast<size_t>(state)];
}

/** Where a device is, by the text of its newest connection. */
struct Presence {
    State state = State::unknown;
    double since = 0; /**< of the connection, seconds since 1970 */
    unsigned connection = 0;
    size_t broker = 0;

    bool is_newer_than(const Presence &other) const {
        return std::tie(since, connection) >= std::tie(other.since, other.connection);
    }
};

/** A client of a device in its last status report. */
struct Station {
    std::string ip;
    long long first_seen = 0;
    long long kept_at = 0; /**< when it was last written, seconds since 1970 */
};

struct Device {
    std::string serial;
    std::string name; /**< people's */
    Json tags = Json::array();
    std::optional<long long> site;
    Json identity = Json::object(), binding = Json::object();
    long long first_seen = 0, last_seen = 0;
    long long version = 1; /**< of what people edit */

    Presence presence;
    long long state_since = 0;
    Json figures = Json::object();     /**< by the names of metrics */
    std::string config_state = "none"; /**< how far it is from its site's configuration */
    std::string config_reason;         /**< why, for people; or empty */
    Json differences = Json::array();

    bool is_kept = true;                      /**< is what the table has of it up to date? */
    std::array<double, reports.size()> due{}; /**< when to ask next, steady seconds */
    std::map<std::tuple<std::string, std::string, std::string>, Station>
        stations; /**< by MAC, SSID, band */

    /** A text of the identity; empty where it told none. */
    const std::string &told(const char *member) const {
        static const std::string none;
        const auto at = identity.find(member);
        return at == identity.end() || !at->is_string() ? none : at->get_ref<const std::string &>();
    }
    const std::string &model() const { return told("model"); }
    const std::string &firmware() const { return told("firmware_version"); }
    bool is_online() const { return presence.state == State::online; }
};

/** The row of the devices' table. */
inline Json row_of(const Device &device) {
    return {{"serial", device.serial},
            {"name", device.name},
            {"tags", device.tags},
            {"site", device.site ? Json(*device.site) : Json()},
            {"identity", device.identity},
            {"binding", device.binding},
            {"first_seen", device.first_seen},
            {"last_seen", device.last_seen},
            {"version", device.version}};
}

/** What people see of it in a list; `whole` with all that it told of itself. */
inline Json shown(const Device &device, bool whole) {
    Json shown = {{"serial", device.serial},
                  {"name", device.name},
                  {"tags", device.tags},
                  {"site", device.site ? Json(*device.site) : Json()},
                  {"state", name_of(device.presence.state)},
                  {"state_since", device.state_since},
                  {"first_seen", device.first_seen},
                  {"last_seen", device.last_seen},
                  {"model", device.model()},
                  {"firmware", device.firmware()},
                  {"mac", device.told("mac")},
                  {"figures", device.figures},
                  {"config_state", device.config_state}};
    if (whole) {
        shown["identity"] = device.identity;
        shown["binding"] = device.binding;
        shown["config_reason"] = device.config_reason;
        shown["differences"] = device.differences;
    }
    return shown;
}

}  // namespace fleet

#endif
