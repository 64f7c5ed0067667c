#include "tests/controller/desired_model.h"

#include <algorithm>

namespace test {
namespace {

struct Radio {
    const char *array;
    const char *stem;
    const char *prefix;
    int slots;
};
constexpr Radio radios_of[] = {{"radio1", "wl2g.ssid", "wl2g.public.", 8},
                               {"radio2", "wl5g.ssid", "wl5g.public.", 4}};

const std::pair<const std::string, std::string> no_schedule[] = {
    {"sys.schedulereboot.enable", "0"},      {"sys.schedulereboot.type", "0"},
    {"sys.schedulereboot.interval", "1440"}, {"sys.schedulereboot.start_time", "3:00"},
    {"sys.schedulereboot.wday", "0000000"},
};

const char *const ciphers[] = {"aes", "tkip", "tkip+aes"};

std::string slot_key(const Radio &radio, int slot) {
    return radio.stem + std::to_string(slot) + ".";
}

int integer(const Json &object, const char *member, int otherwise = 0) {
    const Json value = object.value(member, Json());
    return value.is_number() ? value.get<int>() : otherwise;
}

std::string text(const Json &object, const char *member, const char *otherwise = "") {
    const Json value = object.value(member, Json());
    return value.is_string() ? value.get<std::string>() : otherwise;
}

}  // namespace

Model::Model() {
    for (const Radio &radio : radios_of) {
        const std::string prefix = radio.prefix;
        factory_.insert({{prefix + "enable", "1"},
                         {prefix + "mode", "ap"},
                         {prefix + "channel", "6"},
                         {prefix + "current_power", "20"},
                         {prefix + "web_max_power", "30"},
                         {prefix + "min_power", "5"},
                         {prefix + "rssi_max", "-90"}});
        for (int slot = 0; slot < radio.slots; ++slot) {
            const std::string key = slot_key(radio, slot);
            factory_.insert({{key + "enable", slot == 0 ? "1" : "0"},
                             {key + "ssid", "KALDEN"},
                             {key + "security", "none"},
                             {key + "vlanid", "1000"}});
        }
    }
    factory_["sys.timezone"] = "20";
    factory_.insert(std::begin(no_schedule), std::end(no_schedule));
    committed_ = working_ = factory_;
}

void Model::set(const std::string &key, const Json &value) {
    working_[key] = value.is_string() ? value.get<std::string>() : value.dump();
}

bool Model::commit() {
    if (failing_commits_ > 0) {
        failing_commits_ -= 1;
        return false;
    }
    committed_ = working_;
    return true;
}

Json Model::binding() {
    return {{"cloud_manage", number("nx.manage.en") != 0 ? 1 : 2},
            {"manage", number("nx.manage.mode")},
            {"cloud_id", working_["nx.cloud.id"]},
            {"project_id", number("nx.project.id")},
            {"url", ""},
            {"bind_status", number("nx.bind_status")}};
}

Json Model::call(const std::string &command, const Json &request) {
    Json response = Json::object();
    int result = 0;
    if (command == "add_router_to_prj") {
        result = bind(request, response);
    } else if (command == "del_router_from_prj") {
        for (const char *key : {"nx.manage.en", "nx.manage.status", "nx.bind_status"}) {
            set(key, "0");
        }
        for (const auto &[key, value] : no_schedule) {
            set(key, value);
        }
        set("nx.project.id", "");
        set("nx.cloud.id", "");
        set("sys.timezone", "20");
        commit();
    } else if (command == "server_status") {
        set("nx.manage.status", integer(request, "cloud_status", 1) == 1 ? "0" : "1");
        commit();
    } else if (command == "timestamp_download") {
        result = stamps(request, response);
    } else if (command == "auto_maint") {
        result = maintenance(request);
    } else if (command == "wlan_config_set") {
        result = ssids(request);
    } else if (command == "radio_config_set") {
        result = radios(request);
    } else if (command == "config_upload") {
        response = report();
    }
    response["resp_code"] = result;
    return response;
}

int Model::bind(const Json &request, Json &response) {
    set("sys.region_index", integer(request, "region", 38));
    set("sys.timezone", std::to_string(std::atoi(text(request, "time_zone", "+8").c_str()) + 12));
    set("nx.manage.en", "1");
    set("nx.cloud.id", text(request, "cloud_id"));
    set("nx.project.id", integer(request, "project_id"));
    set("nx.bind_status", "1");
    if (working_["nx.manage.mode"].empty()) {
        set("nx.manage.mode", "1");
    }
    const bool saved = commit();
    response["cloud_id"] = saved ? Json(working_["nx.cloud.id"]) : Json();
    response["project_id"] = saved ? Json(integer(request, "project_id")) : Json();
    return saved ? 0 : -1;
}

int Model::stamps(const Json &request, Json &response) {
    if (integer(request, "timestamp") == 0 || !request.value("time_array", Json()).is_array()) {
        return -1;
    }
    set("sys.region_index", integer(request, "region", 38));
    const std::string zone =
        std::to_string(std::atoi(text(request, "time_zone", "+8").c_str()) + 12);
    if (zone != working_["sys.timezone"]) {
        set("sys.timezone", zone);
        commit();
    }
    int told[3] = {};
    for (const Json &category : request["time_array"]) {
        told[integer(category, "mode")] = integer(category, "timestamp");
    }
    const bool net = number("nx.net_timestamp") != told[0];
    const bool wireless = number("nx.wireless_timestamp") != told[1];
    const bool maint = number("nx.maint_timestamp") != told[2];
    std::string mode = net ? "net" : "";
    mode += wireless ? (mode.empty() ? "wireless" : ",wireless") : "";
    mode += maint ? (mode.empty() ? "devicemain" : ",devicemain") : "";
    response["mode"] = net && wireless && maint ? "all" : mode;
    response["manage_mode"] = number("nx.manage.mode");
    return 0;
}

int Model::maintenance(const Json &request) {
    if (integer(request, "timestamp", -1) > 0) {
        set("nx.maint_timestamp", integer(request, "timestamp"));
    }
    const int mode = integer(request, "mainetmode", -1);
    if (mode == 1 && request.contains("schedule_reboot")) {
        const Json &schedule = request["schedule_reboot"];
        std::string days;
        int common = 1;
        for (const Json &day : schedule.at("repeat_day")) {
            common &= day.get<int>();
            days += day.dump();
        }
        set("sys.schedulereboot.wday", std::to_string(common) + days);
        set("sys.schedulereboot.type", "1");
        set("sys.schedulereboot.start_time", text(schedule, "start_time", "03:00"));
    } else if (mode == 2 && request.contains("cycle_restart")) {
        set("sys.schedulereboot.type", "0");
        set("sys.schedulereboot.interval", integer(request["cycle_restart"], "timeval"));
    } else if (mode != 0) {
        return 0;
    }
    set("sys.schedulereboot.enable", mode == 0 ? "0" : "1");
    commit();
    return 0;
}

void Model::set_ssid(const std::string &key, const Json &ssid, bool &vlan_changed) {
    const int on = integer(ssid, "ssidenable");
    set(key + "enable", on);
    set(key + "nx.time_close", on == 0 ? 0 : integer(ssid, "time_close"));
    if (on == 0) {
        return;
    }
    set(key + "ssid", text(ssid, "ssid"));
    set(key + "hide", integer(ssid, "hide") != 0 ? 1 : 0);
    const std::string vlan = text(ssid, "vlan", "0");
    const std::string id = std::atoi(vlan.c_str()) == 0 ? "1000" : vlan;
    vlan_changed |= working_[key + "vlanid"] != id;
    set(key + "vlanid", id);
    const int encrypt = integer(ssid, "encrypt");
    set(key + "security", encrypt == 0 ? "none" : "wpapsk");
    if (encrypt != 0) {
        set(key + "wpapsk_type", encrypt == 1 ? "psk" : "psk2");
        set(key + "wpapsk_crypto", ciphers[integer(ssid, "security")]);
        set(key + "wpapsk_psk", text(ssid, "passwd"));
        set(key + "key_uptime", integer(ssid, "update_time"));
    }
    set(key + "bss_maxassoc", integer(ssid, "max_conn"));
    if (integer(ssid, "time_close") == 1) {
        set(key + "nx.timeval", text(ssid, "timeval"));
    }
    set(key + "sta_isolate", integer(ssid, "client_quarantine"));
    set(key + "type", 1);
}

int Model::ssids(const Json &request) {
    if (is_local()) {
        return -1;
    }
    set("nx.wireless_timestamp", integer(request, "timestamp"));
    bool vlan_changed = false;
    for (const Radio &radio : radios_of) {
        for (const Json &ssid : request.at(radio.array)) {
            set_ssid(slot_key(radio, integer(ssid, "ssididx")), ssid, vlan_changed);
        }
        commit();
    }
    restarts_ |= vlan_changed;
    return 0;
}

int Model::radios(const Json &request) {
    if (is_local()) {
        return -1;
    }
    set("nx.wireless_timestamp", integer(request, "timestamp"));
    for (size_t i = 0; i < 2; ++i) {
        const Json &rule = request.at("rf_rule").at(i);
        const std::string prefix = radios_of[i].prefix;
        set(prefix + "enable", integer(rule, "radioenable"));
        set(prefix + "rssi_max", std::max(integer(rule, "rssi", -96), -90));
        if (working_[prefix + "mode"] != "apclient") {
            set(prefix + "channel", integer(rule, "channel"));
            set(prefix + "current_power",
                std::max(std::min(integer(rule, "power", 20), number(prefix + "web_max_power")),
                         number(prefix + "min_power")));
        }
        commit();
    }
    return 0;
}

Json Model::report_ssid(const std::string &key, int slot) {
    Json ssid = Json::object();
    const bool is_secured = working_[key + "security"] == "wpapsk";
    const bool is_wpa = working_[key + "wpapsk_type"] == "psk";
    if (is_secured) {
        ssid["passwd"] = working_[key + "wpapsk_psk"];
    }
    ssid["name"] = "";
    ssid["ssididx"] = slot;
    ssid["ssid"] = working_[key + "ssid"];
    ssid["hide"] = number(key + "hide");
    ssid["encrypt"] = !is_secured ? 0 : is_wpa ? 1 : 2;
    ssid["security"] =
        std::max<long>(0, std::ranges::find(ciphers, working_[key + "wpapsk_crypto"]) - ciphers) %
        3;
    ssid["update_time"] = number(key + "key_uptime");
    ssid["max_conn"] = number(key + "bss_maxassoc");
    ssid["time_close"] = number(key + "nx.time_close");
    ssid["timeval"] = number(key + "nx.time_close") != 0 ? working_[key + "nx.timeval"] : "";
    ssid["status"] = number(key + "enable");
    ssid["type"] = number(key + "type");
    ssid["guest_mode"] = number(key + "guest_enable");
    ssid["wire_mode"] = 0;
    ssid["client_quarantine"] = number(key + "sta_isolate");
    ssid["vlan"] = working_[key + "vlanid"] == "1000" ? "" : working_[key + "vlanid"];
    return ssid;
}

Json Model::report() {
    Json config = Json::object();
    Json rules = Json::array();
    for (const Radio &radio : radios_of) {
        for (int slot = 0; slot < radio.slots; ++slot) {
            config[radio.array].push_back(report_ssid(slot_key(radio, slot), slot));
        }
        const std::string prefix = radio.prefix;
        rules.push_back({{"channel", number(prefix + "channel")},
                         {"is_ap_client", working_[prefix + "mode"] == "apclient" ? 1 : 0},
                         {"power", number(prefix + "current_power")},
                         {"rssi", number(prefix + "rssi_max")},
                         {"radioenable", number(prefix + "enable")}});
    }
    const std::string schedule = "sys.schedulereboot.";
    Json maint = {{"close_reboot", number(schedule + "enable")},
                  {"timestamp", number("nx.maint_timestamp")},
                  {"mainetmode", number(schedule + "type") != 0 ? 1 : 2}};
    if (number(schedule + "type") == 0) {
        maint["cycle_restart"] = {{"timeval", number(schedule + "interval")}};
    } else {
        const std::string days = working_[schedule + "wday"];
        Json flags = Json::array();
        for (size_t day = 0; day < 7; ++day) {
            flags.push_back(days.size() == 8 ? days[day + 1] - '0' : 0);
        }
        maint["schedule_reboot"] = {{"start_time", working_[schedule + "start_time"]},
                                    {"repeat_day", flags}};
    }
    return {{"wireless", {{"wireless_config", config}, {"radio_config", {{"rf_rule", rules}}}}},
            {"maint", maint}};
}

}  // namespace test
