#include "report/radio.h"

#include "tests/report/rich_device.h"

namespace {

using Radio = test::ReportDevice;

TEST_F(Radio, TellsWhatARadioWorksOn) {
    vap::patch_hardware({{"radios", {{"24", {{"channel", 6}, {"bandwidth", 40}}}}}});
    set("wl2g.public.channel", "11");
    set("wl2g.public.bandwidth", "20");
    struct Row {
        const char *enable, *ssid_enable, *mode;
        int radioflag, bindwidth, channel, is_client;
    } const rows[] = {
        {"1", "1", "ap", 6, 40, 11, 0},
        {"1", "0", "ap", 0, 40, 11, 0},       // no SSID on the air: no channel
        {"0", "1", "ap", 0, 20, 11, 0},       // the configured width of a radio that is off
        {"1", "1", "apclient", 6, 40, 6, 1},  // follows its access point
    };
    for (const Row &row : rows) {
        set("wl2g.public.enable", row.enable);
        set("wl2g.ssid0.enable", row.ssid_enable);
        set("wl2g.public.mode", row.mode);
        vap::Json rule = build(rf_rule_get).json[0];
        const vap::Json expected = {{"radioflag", row.radioflag},
                                    {"bindwidth", row.bindwidth},
                                    {"channel", row.channel},
                                    {"is_ap_client", row.is_client},
                                    {"radioenable", atoi(row.enable)}};
        const vap::Json unchanged = rule;
        rule.update(expected);
        EXPECT_EQ(rule, unchanged) << expected;
    }
    set("wl2g.ssid7.enable", "1");
    set("wl2g.public.enable", "1");
    EXPECT_EQ(build(rf_rule_get).json[0]["radioflag"], 6) << "the last slot counts, too";
}

TEST_F(Radio, ReadsAStatusThatFailedAsZeros) {
    vap::fail("wifi_get_status_list", 1, -1);
    set("wl5g.public.mode", "apclient");
    for (const vap::Json &rule : build(rf_rule_get).json) {
        EXPECT_EQ(rule["radioflag"], 0);
        EXPECT_EQ(rule["bindwidth"], 0);
    }
    EXPECT_EQ(build(ssid_info_get).json[8]["bssid"], "");
}

TEST_F(Radio, StopsAtAScanThatFails) {
    const vap::Json one = {{{"ssid", "a"}, {"bssid", "02:00:00:00:00:01"}}};
    vap::patch_hardware({{"scan", {{"24", one}, {"5", one}}}});
    vap::fail("wifi_do_scan");
    Built built = build(neighbor_entry_get);
    EXPECT_EQ(built.result, -1);
    EXPECT_EQ(built.text, "[]") << "the second radio is not scanned";
    vap::patch_hardware({{"scan", {{"5", vap::Json::array()}}}});
    built = build(neighbor_entry_get);
    EXPECT_EQ(built.result, -1) << "nothing found is a failure";
    EXPECT_EQ(built.json.size(), 1U);
    set("wl5g.public.enable", "0");
    EXPECT_EQ(build(neighbor_entry_get).result, 0) << "a radio that is off is passed over";
    set("wl2g.public.enable", "0");
    EXPECT_EQ(build(neighbor_entry_get).text, "[]");
}

TEST_F(Radio, TakesAtMost128Neighbours) {
    vap::Json many = vap::Json::array();
    for (int i = 0; i < 200; ++i) {
        many.push_back({{"ssid", std::to_string(i)}, {"bssid", "02:00:00:00:00:01"}});
    }
    vap::patch_hardware({{"scan", {{"24", many}}}});
    set("wl5g.public.enable", "0");
    const vap::Json found = build(neighbor_entry_get).json;
    ASSERT_EQ(found.size(), 128U);
    EXPECT_EQ(found[127]["ssid"], "127");
}

TEST_F(Radio, NamesBssidsOfBothRadiosByTheSlot) {
    vap::patch_hardware({{"bssids", {"02:00:00:00:00:00", nullptr, "02:00:00:00:00:02"}},
                         {"radios", {{"24", {{"upstream", "0c:0c:0c:0c:0c:0c"}}}}}});
    const auto bssid = [](int slot) { return build(ssid_info_get).json[slot]["bssid"]; };
    EXPECT_EQ(bssid(1), "00:00:00:00:00:00") << "the store has none";
    EXPECT_EQ(bssid(8), "02:00:00:00:00:00");
    EXPECT_EQ(bssid(10), "02:00:00:00:00:02");
    set("wl2g.public.mode", "apclient");
    EXPECT_EQ(bssid(0), "0C:0C:0C:0C:0C:0C");
    set("wl2g.public.enable", "0");
    EXPECT_EQ(bssid(0), "") << "switched off, a client knows no access point";
}

}  // namespace
