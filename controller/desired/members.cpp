#include "controller/desired/members.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace desired {
namespace {

/* ---- values: the document's <-> the agent's ----------------------------- */

/** A value in the other's words. What cannot be told in the document becomes "other". */
using Convert = Json (*)(const Json &value);

int64_t whole(const Json &value) {
    return value.is_number_integer() ? value.get<int64_t>() : 0;
}

std::string as_text(const Json &value) {
    return value.is_string() ? value.get<std::string>() : "";
}

/** A value of a device as it is shown and kept: never more of it than a document could hold. */
Json shown(const Json &found) {
    constexpr size_t longest = 255;
    return found.is_structured() || as_text(found).size() > longest ? Json("other") : found;
}

Json same(const Json &value) {
    return value;
}

Json flag(const Json &value) {
    return value == true ? 1 : 0;
}
Json is_set(const Json &value) {
    return whole(value) != 0;
}

/** A text that is empty where the document has null. */
Json text_or_empty(const Json &value) {
    return as_text(value);
}
Json text_or_null(const Json &value) {
    return as_text(value).empty() ? Json() : value;
}

/** The agent's code of a name is its place in the list. */
constexpr std::array encryptions{"open", "wpa", "wpa2"};
constexpr std::array ciphers{"aes", "tkip", "tkip+aes"};

template <const auto &Names>
Json code(const Json &name) {
    return std::ranges::find(Names, name) - Names.begin();
}
template <const auto &Names>
Json name_of(const Json &code) {
    const auto index = static_cast<uint64_t>(whole(code));
    return code.is_number() && index < Names.size() ? Json(Names[index]) : Json("other");
}

/** The VLAN of every SSID without one of its own: an order calls it 0, a report nothing. */
constexpr int64_t default_vlan = 1000;

Json vlan_text(const Json &vlan) {
    return whole(vlan) == default_vlan ? "0" : std::to_string(whole(vlan));
}
Json vlan_number(const Json &text) {
    const int64_t vlan = std::strtol(as_text(text).c_str(), nullptr, 10);
    return vlan == 0 || vlan == default_vlan ? Json() : Json(vlan);
}

Json channel_number(const Json &channel) {
    return whole(channel);
}
Json channel_or_auto(const Json &number) {
    return whole(number) == 0 ? Json("auto") : number;
}

/** No device stores a weaker signal as its bound. */
Json bounded_signal(const Json &dbm) {
    return std::max<int64_t>(whole(dbm), -90);
}

/* ---- the table ---------------------------------------------------------- */

struct Member {
    const char *document;
    const char *order;  /**< in a command */
    const char *report; /**< in an answer of `config_upload` */
    Convert to_agent;
    Convert from_agent;
};

/** An element of `radio1` and `radio2`. */
constexpr std::array ssid_members{
    Member{"name", "ssid", "ssid", same, same},
    Member{"enabled", "ssidenable", "status", flag, is_set},
    Member{"hidden", "hide", "hide", flag, is_set},
    Member{"security", "encrypt", "encrypt", code<encryptions>, name_of<encryptions>},
    Member{"cipher", "security", "security", code<ciphers>, name_of<ciphers>},
    Member{"passphrase", "passwd", "passwd", text_or_empty, text_or_null},
    Member{"vlan", "vlan", "vlan", vlan_text, vlan_number},
    Member{"isolate_clients", "client_quarantine", "client_quarantine", flag, is_set},
    Member{"max_clients", "max_conn", "max_conn", same, same},
    Member{"off_times", "timeval", "timeval", text_or_empty, text_or_null},
};

/** An element of `rf_rule`. */
constexpr std::array radio_members{
    Member{"enabled", "radioenable", "radioenable", flag, is_set},
    Member{"channel", "channel", "channel", channel_number, channel_or_auto},
    Member{"power_dbm", "power", "power", same, same},
    Member{"min_signal_dbm", "rssi", "rssi", bounded_signal, bounded_signal},
};

constexpr std::array ssid_arrays{"radio1", "radio2"};
static_assert(ssid_arrays.size() == std::size(bands));

/** The first of the agent's weekday flags is Monday's. */
constexpr std::array weekdays{"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

/** Seconds between two changes of an SSID's group key: what devices come with. */
constexpr int key_update_time = 3600;

void add_members(Json &order, std::span<const Member> rows, const Json &document) {
    for (const Member &row : rows) {
        order[row.order] = row.to_agent(document.at(row.document));
    }
}

/** A slot without an SSID: a device stores of it only that it is off. */
const Json &unused_ssid() {
    static const Json ssid = {
        {"name", ""},       {"enabled", false},      {"hidden", false}, {"security", "open"},
        {"cipher", "aes"},  {"passphrase", nullptr}, {"vlan", nullptr}, {"isolate_clients", false},
        {"max_clients", 0}, {"off_times", nullptr},
    };
    return ssid;
}

Json ssid_order(size_t slot, const Json &ssid) {
    Json order = {{"ssididx", slot}, {"name", ""}};
    add_members(order, ssid_members, ssid);
    // Two members with no word of their own in the document.
    order["update_time"] = key_update_time;
    order["time_close"] = ssid["off_times"].is_null() ? 0 : 1;
    return order;
}

/* ---- schedule ----------------------------------------------------------- */

/** The schedule in a report, as the document has it; "other" for one that it cannot tell. */
Json reboot_of(const Json &maint) {
    if (whole(maint.value("close_reboot", Json())) == 0) {
        return nullptr;
    }
    if (maint.value("mainetmode", Json()) == 2) {
        const Json cycle = maint.value("cycle_restart", Json::object());
        const Json minutes = cycle.is_object() ? cycle.value("timeval", Json()) : Json();
        return {{"every_minutes", shown(minutes)}};
    }
    const Json schedule = maint.value("schedule_reboot", Json::object());
    const Json flags = schedule.is_object() ? schedule.value("repeat_day", Json()) : Json();
    int hour = 0;
    int minute = 0;
    if (!flags.is_array() || flags.size() != weekdays.size() ||
        sscanf(as_text(schedule.value("start_time", Json())).c_str(), "%2d:%2d", &hour, &minute) !=
            2) {
        return "other";
    }
    char at[32];
    snprintf(at, sizeof at, "%02d:%02d", hour, minute);
    Json days = Json::array();
    for (size_t day = 0; day < weekdays.size(); ++day) {
        if (whole(flags[day]) != 0) {
            days.push_back(weekdays[day]);
        }
    }
    return {{"at", at}, {"days", days}};
}

/* ---- comparison --------------------------------------------------------- */

using Differences = std::vector<Difference>;

std::string path_of(const char *group, const std::string &name, const char *member = nullptr) {
    const auto path = nlohmann::json::json_pointer() / group / name;
    return (member == nullptr ? path : path / member).to_string();
}

/** Adds what a row of the table finds. Both sides go through the agent's words, so that two
 *  ways to say one thing are none. */
void compare_member(const Member &row, const Json &wanted, const Json &report,
                    const std::string &path, Differences &differences,
                    Difference::Kind kind = Difference::Kind::drift) {
    const Json sought = row.from_agent(row.to_agent(wanted.at(row.document)));
    const Json found = row.from_agent(report.value(row.report, Json()));
    if (sought == found) {
        return;
    }
    const bool secret = std::string_view(row.document) == "passphrase";
    differences.push_back({path + "/" + row.document, secret ? Json("set") : sought,
                           secret ? Json("other") : shown(found), kind});
}

/** Of an SSID that is off, a device keeps nothing else; of an open one, what secures it has no
 *  meaning; and one of another name is another SSID altogether. */
void compare_slot(const Json &wanted, const Json &report, const char *band,
                  Differences &differences) {
    const bool on = is_set(report.value("status", Json())) == true;
    const Json found = report.value("ssid", Json());
    const auto path = [&](const std::string &name) { return path_of("ssids", name) + "/" + band; };
    if (wanted["enabled"] != on) {
        const std::string name = as_text(on ? shown(found) : wanted["name"]);
        differences.push_back({path(name) + "/enabled", !on, on});
    }
    if (!on || wanted["enabled"] == false) {
        return;
    }
    const bool is_open = wanted["security"] == "open";
    for (const Member &row : ssid_members) {
        const std::string_view member = row.document;
        if (member == "enabled" || (is_open && (member == "cipher" || member == "passphrase"))) {
            continue;
        }
        compare_member(row, wanted, report, path(wanted["name"]), differences);
        if (member == "name" && found != wanted["name"]) {
            return;
        }
    }
}

/** A radio that is a client of another access point keeps that one's channel, and its power. */
void compare_radio(const Json &wanted, const Json &report, const char *band,
                   Differences &differences) {
    const bool is_client = is_set(report.value("is_ap_client", Json())) == true;
    for (const Member &row : radio_members) {
        const std::string_view member = row.document;
        const bool is_kept = is_client && (member == "channel" || member == "power_dbm");
        compare_member(row, wanted, report, path_of("radios", band), differences,
                       is_kept ? Difference::Kind::substituted : Difference::Kind::drift);
    }
}

/** A member by its path; null where there is none. */
Json at(const Json &document, const char *pointer) {
    const Json::json_pointer place(pointer);
    return document.contains(place) ? document.at(place) : Json();
}

/** A list of a report with all its objects; nothing when it lacks any. */
std::optional<Json> list(const Json &report, const char *pointer, size_t size) {
    Json array = at(report, pointer);
    const bool is_whole =
        array.is_array() && array.size() >= size &&
        std::ranges::all_of(array, [](const Json &row) { return row.is_object(); });
    return is_whole ? std::optional(std::move(array)) : std::nullopt;
}

}  // namespace

Json ssids_request(const Json &configuration) {
    Json request = {{"timestamp", 0}};
    for (size_t band = 0; band < std::size(bands); ++band) {
        const auto used = slots_of(configuration, bands[band]);
        Json &array = request[ssid_arrays[band]] = Json::array();
        for (size_t slot = 0; slot < bands[band].slots; ++slot) {
            array.push_back(ssid_order(slot, slot < used.size() ? *used[slot] : unused_ssid()));
        }
    }
    return request;
}

Json radios_request(const Json &configuration, int64_t stamp) {
    Json request = {{"timestamp", stamp}, {"rf_rule", Json::array()}};
    for (const Band &band : bands) {
        add_members(request["rf_rule"].emplace_back(Json::object()), radio_members,
                    configuration.at("radios").at(band.name));
    }
    return request;
}

Json maintenance_request(const Json &configuration, int64_t stamp) {
    const Json &reboot = configuration.at("reboot");
    if (reboot.is_null()) {
        return {{"mainetmode", 0}, {"timestamp", stamp}};
    }
    if (reboot.contains("every_minutes")) {
        return {{"mainetmode", 2},
                {"timestamp", stamp},
                {"cycle_restart", {{"timeval", reboot["every_minutes"]}}}};
    }
    Json flags = Json::array();
    for (const char *day : weekdays) {
        flags.push_back(std::ranges::count(reboot["days"], Json(day)));
    }
    return {{"mainetmode", 1},
            {"timestamp", stamp},
            {"schedule_reboot", {{"start_time", reboot["at"]}, {"repeat_day", flags}}}};
}

std::optional<std::vector<Difference>> compare(const Json &configuration, const Json &report) {
    Differences differences;
    const auto rules = list(report, "/wireless/radio_config/rf_rule", std::size(bands));
    const Json maint = at(report, "/maint");
    if (!rules || !maint.is_object()) {
        return std::nullopt;
    }
    for (size_t band = 0; band < std::size(bands); ++band) {
        const std::string place = std::string("/wireless/wireless_config/") + ssid_arrays[band];
        const auto slots = list(report, place.c_str(), bands[band].slots);
        if (!slots) {
            return std::nullopt;
        }
        const auto used = slots_of(configuration, bands[band]);
        for (size_t slot = 0; slot < bands[band].slots; ++slot) {
            compare_slot(slot < used.size() ? *used[slot] : unused_ssid(), (*slots)[slot],
                         bands[band].name, differences);
        }
    }
    for (size_t band = 0; band < std::size(bands); ++band) {
        const char *name = bands[band].name;
        compare_radio(configuration.at("radios").at(name), (*rules)[band], name, differences);
    }
    const Json &wanted = configuration.at("reboot");
    const Json found = reboot_of(maint);
    if (wanted != found) {
        differences.push_back({"/reboot", wanted, found});
    }
    return differences;
}

}  // namespace desired
