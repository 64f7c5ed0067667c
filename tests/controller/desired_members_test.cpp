#include "controller/desired/members.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/controller/desired_samples.h"

namespace {

using desired::Json;
using test::changed;
using Kind = desired::Difference::Kind;

Json sample() {
    return desired::check_configuration(test::sample_configuration()).document;
}

TEST(Members, OrdersAreWholeAndInTheAgentsWords) {
    const Json ssids = desired::ssids_request(sample());
    EXPECT_EQ(ssids["timestamp"], 0);
    ASSERT_EQ(ssids["radio1"].size(), 8U);
    ASSERT_EQ(ssids["radio2"].size(), 4U);
    const char *staff =
        R"({"ssididx":0,"name":"","ssid":"Staff","ssidenable":1,"hide":0,"encrypt":2,)"
        R"("security":2,"passwd":"welcome-2024","vlan":"30","client_quarantine":1,"max_conn":32,)"
        R"("timeval":"","update_time":3600,"time_close":0})";
    EXPECT_EQ(ssids["radio1"][0].dump(), staff);
    EXPECT_EQ(ssids["radio2"][0].dump(), staff);
    EXPECT_EQ(ssids["radio1"][1].dump(),
              R"({"ssididx":1,"name":"","ssid":"Guests","ssidenable":1,"hide":1,"encrypt":0,)"
              R"("security":0,"passwd":"","vlan":"0","client_quarantine":0,"max_conn":0,)"
              R"("timeval":"22:00-06:00","update_time":3600,"time_close":1})");
    EXPECT_EQ(ssids["radio2"][3].dump(),
              R"({"ssididx":3,"name":"","ssid":"","ssidenable":0,"hide":0,"encrypt":0,)"
              R"("security":0,"passwd":"","vlan":"0","client_quarantine":0,"max_conn":0,)"
              R"("timeval":"","update_time":3600,"time_close":0})");

    EXPECT_EQ(desired::radios_request(sample(), 77).dump(),
              R"({"timestamp":77,"rf_rule":[)"
              R"({"radioenable":1,"channel":0,"power":15,"rssi":-80},)"
              R"({"radioenable":1,"channel":36,"power":20,"rssi":-90}]})");

    EXPECT_EQ(desired::maintenance_request(sample(), 78).dump(),
              R"({"mainetmode":1,"timestamp":78,)"
              R"("schedule_reboot":{"start_time":"04:30","repeat_day":[0,0,0,0,0,1,1]}})");
    EXPECT_EQ(
        desired::maintenance_request(changed(sample(), "/reboot", {{"every_minutes", 720}}), 1)
            .dump(),
        R"({"mainetmode":2,"timestamp":1,"cycle_restart":{"timeval":720}})");
    EXPECT_EQ(desired::maintenance_request(changed(sample(), "/reboot", nullptr), 1).dump(),
              R"({"mainetmode":0,"timestamp":1})");
}

/** What a device that has the sample reports; where the two name a thing otherwise, by hand. */
Json report() {
    Json wireless = desired::ssids_request(sample());
    for (const char *radio : {"radio1", "radio2"}) {
        for (Json &ssid : wireless[radio]) {
            ssid["status"] = ssid["ssidenable"];
            ssid["vlan"] = ssid["vlan"] == "0" ? "" : ssid["vlan"];
            ssid.erase("ssidenable");
        }
    }
    Json rules = desired::radios_request(sample(), 0)["rf_rule"];
    rules[1]["is_ap_client"] = 0;
    return {
        {"wireless", {{"wireless_config", wireless}, {"radio_config", {{"rf_rule", rules}}}}},
        {"maint",
         {{"close_reboot", 1},
          {"mainetmode", 1},
          {"schedule_reboot", {{"start_time", "4:30"}, {"repeat_day", {0, 0, 0, 0, 0, 1, 1}}}}}}};
}

TEST(Members, WhatADeviceHasIsComparedByMeaning) {
    struct Row {
        const char *pointer; /**< in the report */
        Json value;
        const char *path; /**< of the one difference; "" for none */
        Json wanted = {};
        Json found = {};
        Kind kind = Kind::drift;
    };
    const std::string staff = "/wireless/wireless_config/radio2/0";
    const std::string guests = "/wireless/wireless_config/radio1/1";
    const std::string unused = "/wireless/wireless_config/radio1/7";
    const std::string radio = "/wireless/radio_config/rf_rule/1";
    const std::pair<std::string, Row> rows[] = {
        {staff, {"/ssid", "Old", "/ssids/Staff/5/name", "Staff", "Old"}},
        {staff, {"/ssid", std::string(256, 'x'), "/ssids/Staff/5/name", "Staff", "other"}},
        {staff, {"/max_conn", Json::array(), "/ssids/Staff/5/max_clients", 32, "other"}},
        {staff, {"/status", 0, "/ssids/Staff/5/enabled", true, false}},
        {staff, {"/status", 2, ""}},
        {staff, {"/hide", 1, "/ssids/Staff/5/hidden", false, true}},
        {staff, {"/encrypt", 1, "/ssids/Staff/5/security", "wpa2", "wpa"}},
        {staff, {"/encrypt", 5, "/ssids/Staff/5/security", "wpa2", "other"}},
        {staff, {"/encrypt", -1, "/ssids/Staff/5/security", "wpa2", "other"}},
        {staff, {"/security", 0, "/ssids/Staff/5/cipher", "tkip+aes", "aes"}},
        {staff, {"/passwd", "its-secret", "/ssids/Staff/5/passphrase", "set", "other"}},
        {staff, {"/vlan", "", "/ssids/Staff/5/vlan", 30, nullptr}},
        {staff, {"/vlan", "030", ""}},
        {staff, {"/max_conn", 64, "/ssids/Staff/5/max_clients", 32, 64}},
        {staff, {"/client_quarantine", 0, "/ssids/Staff/5/isolate_clients", true, false}},
        {staff, {"/timeval", "01:00", "/ssids/Staff/5/off_times", nullptr, "01:00"}},
        {staff, {"/update_time", 0, ""}},
        {guests, {"/vlan", "0", ""}},
        {guests, {"/vlan", "1000", ""}},
        {guests, {"/vlan", "x", ""}},
        {guests, {"/security", 2, ""}},          // an open network has no cipher
        {guests, {"/passwd", "left-over", ""}},  // nor a pass phrase
        {unused, {"/ssid", "Old", ""}},          // off: nothing else counts
        {unused, {"/status", 1, "/ssids//2.4/enabled", false, true}},
        {radio, {"/channel", 44, "/radios/5/channel", 36, 44}},
        {radio, {"/channel", 0, "/radios/5/channel", 36, "auto"}},
        {radio, {"/power", 17, "/radios/5/power_dbm", 20, 17}},
        {radio, {"/rssi", -96, ""}},
        {radio, {"/rssi", -89, "/radios/5/min_signal_dbm", -90, -89}},
        {radio, {"/radioenable", 0, "/radios/5/enabled", true, false}},
        {"/maint", {"/close_reboot", 0, "/reboot", sample()["reboot"], nullptr}},
        {"/maint/schedule_reboot",
         {"/repeat_day/0",
          1,
          "/reboot",
          sample()["reboot"],
          {{"at", "04:30"}, {"days", {"mon", "sat", "sun"}}}}},
        {"/maint/schedule_reboot",
         {"/start_time", "never", "/reboot", sample()["reboot"], "other"}},
    };
    ASSERT_EQ(desired::compare(sample(), report())->size(), 0U);
    for (const auto &[place, row] : rows) {
        const auto found =
            desired::compare(sample(), changed(report(), place + row.pointer, row.value));
        ASSERT_TRUE(found) << place << row.pointer;
        std::vector<desired::Difference> expected;
        if (*row.path != '\0') {
            expected.push_back({row.path, row.wanted, row.found, row.kind});
        }
        EXPECT_EQ(nlohmann::json(*found), nlohmann::json(expected)) << place << row.pointer;
    }
}

TEST(Members, ForeignNetworksAreNamedAndClientRadiosKeepTheirs) {
    Json told = report();
    told["wireless"]["wireless_config"]["radio1"][5].update({{"status", 1}, {"ssid", "A/B~"}});
    told["wireless"]["radio_config"]["rf_rule"][1].update(
        {{"is_ap_client", 1}, {"channel", 149}, {"power", 9}, {"rssi", -70}});
    EXPECT_EQ(nlohmann::json(*desired::compare(sample(), told)), nlohmann::json::parse(R"([
                {"path": "/ssids/A~1B~0/2.4/enabled", "wanted": false, "found": true,
                 "kind": "drift"},
                {"path": "/radios/5/channel", "wanted": 36, "found": 149, "kind": "substituted"},
                {"path": "/radios/5/power_dbm", "wanted": 20, "found": 9, "kind": "substituted"},
                {"path": "/radios/5/min_signal_dbm", "wanted": -90, "found": -70,
                 "kind": "drift"}])"));

    const Json cyclic = changed(sample(), "/reboot", {{"every_minutes", 720}});
    told = changed(report(), "/maint",
                   {{"close_reboot", 1}, {"mainetmode", 2}, {"cycle_restart", {{"timeval", 720}}}});
    EXPECT_EQ(desired::compare(cyclic, told)->size(), 0U);
    told["maint"]["cycle_restart"] = 5;
    EXPECT_EQ(desired::compare(cyclic, told)->size(), 1U);
}

TEST(Members, AReportThatIsNotWholeTellsNothing) {
    for (const char *pointer :
         {"/wireless", "/maint", "/wireless/wireless_config/radio1", "/wireless/radio_config",
          "/wireless/wireless_config/radio2/3", "/wireless/radio_config/rf_rule/0"}) {
        for (const Json &value : {Json(), Json(7), Json::array()}) {
            EXPECT_FALSE(desired::compare(sample(), changed(report(), pointer, value)))
                << pointer << value;
        }
    }
    const Json values[] = {nullptr, 7, "x", 1.5, true, Json::array(), Json::object()};
    const Json wanted = sample();
    const Json whole = report();
    const Json leaves = whole.flatten();
    for (const Json &value : values) {
        EXPECT_FALSE(desired::compare(wanted, value));
        for (const auto &[pointer, leaf] : leaves.items()) {
            EXPECT_NO_THROW(desired::compare(wanted, changed(whole, pointer, value)))
                << pointer << value;
        }
    }
}

}  // namespace
