#include "report/config_report.h"

#include "tests/report/rich_device.h"

namespace {

class ConfigReport : public test::ReportDevice {
  protected:
    static vap::Json maintenance() { return build(maint_data_get, false).json; }
};

TEST_F(ConfigReport, ReadsAMissingSlotAsEmpty) {
    const auto ssid_11 = [](cJSON *array) { return ssid_config_get(11, array, "wl2g.ssid"); };
    EXPECT_EQ(build(ssid_11).json[0].dump(),
              R"({"name":"","ssididx":11,"ssid":"","hide":0,"encrypt":5,"security":0,)"
              R"("update_time":0,"max_conn":0,"time_close":0,"timeval":"","status":0,"type":0,)"
              R"("guest_mode":0,"wire_mode":0,"client_quarantine":0,"vlan":""})");
}

TEST_F(ConfigReport, TellsTheWeekdays) {
    struct Row {
        const char *stored, *reported;
    } const rows[] = {
        {"01111100", "[1,1,1,1,1,0,0]"},
        {"10000001", "[0,0,0,0,0,0,1]"},  // the first digit has no weekday
        {"1111111x", "[0,0,0,0,0,0,0]"},  // one short
        {"0123456789", "[1,2,3,4,5,6,7]"},
    };
    set("sys.schedulereboot.type", "1");
    for (const Row &row : rows) {
        set("sys.schedulereboot.wday", row.stored);
        EXPECT_EQ(maintenance()["schedule_reboot"]["repeat_day"].dump(), row.reported)
            << row.stored;
    }
}

TEST_F(ConfigReport, TellsOneOfTwoSchedules) {
    set_all({{"sys.schedulereboot.type", "0"}, {"sys.schedulereboot.enable", "2"}});
    EXPECT_EQ(maintenance().dump(), R"({"close_reboot":2,"timestamp":0,"mainetmode":2,)"
                                    R"("cycle_restart":{"timeval":1440}})");
    set("sys.schedulereboot.type", "-1");
    EXPECT_EQ(maintenance()["mainetmode"], 1);
    EXPECT_FALSE(maintenance().contains("cycle_restart"));
}

TEST_F(ConfigReport, FailsUnlessItIsWhole) {
    set("sys.schedulereboot.type", "1");
    const auto failing_at = [](int (*builder)(cJSON *), int nth) {
        return build(
            [&](cJSON *object) {
                const test::JsonAllocations memory(nth);
                return builder(object);
            },
            false);
    };
    const Built whole = failing_at(maint_data_get, 0);
    for (int nth = 1; nth < 30; ++nth) {
        const Built built = failing_at(maint_data_get, nth);
        EXPECT_EQ(built.result, built.json == whole.json ? 0 : -1) << nth;
        EXPECT_EQ(built.json.contains("schedule_reboot"), nth > 4) << "what was added stays";
    }
    for (int nth = 1; nth < 600; ++nth) {
        const Built built = failing_at(wireless_data_get, nth);
        const auto has = [&](const char *path) {
            return built.json.contains(vap::Json::json_pointer(path));
        };
        EXPECT_EQ(built.result == 0, has("/wireless_config/radio1") &&
                                         has("/wireless_config/radio2") &&
                                         has("/radio_config/rf_rule/1"))
            << nth;
    }
}

TEST_F(ConfigReport, StampsTheWirelessConfiguration) {
    set_all({{"nx.wireless_timestamp", "123"}, {"sys.timezone", "20"}});
    for (const char *mode : {"0", "1", "3"}) {
        set("nx.manage.mode", mode);
        EXPECT_EQ(wireless_timestamp_get(), *mode == '1' ? 123 : 0) << mode;
    }
    set("nx.manage.mode", "2");
    vap::advance(30);
    EXPECT_EQ(wireless_timestamp_get(), 1'700'000'030 + 43200 - 3600 * 20);
    set("sys.timezone", "17.75");  // the fraction of an hour does not count
    EXPECT_EQ(wireless_timestamp_get(), 1'700'000'030 + 43200 - 3600 * 17);
    set("sys.up.timestamp", "1600000000");
    EXPECT_EQ(wireless_timestamp_get(), 1'600'000'030);
    set("sys.up.timestamp", "99999999999");
    EXPECT_EQ(wireless_timestamp_get(), 2'147'483'647);
    set("sys.up.timestamp", "-100");
    EXPECT_EQ(wireless_timestamp_get(), -70);
    set("nx.local_wireless_timestamp", "");
    EXPECT_EQ(wireless_timestamp_get(), 0) << "present, though empty";
    set("nx.local_wireless_timestamp", "77");
    EXPECT_EQ(wireless_timestamp_get(), 77);
}

TEST_F(ConfigReport, SumsTheCountersOfOneInterfaceForEachSlot) {
    const auto traffic = [](uint64_t bytes) { return vap::Json{{"bytes", bytes}, {"rate", 0}}; };
    vap::patch_hardware({{"interfaces",
                          {{"wlan1", {{"rx", traffic(1024)}, {"tx", traffic(10)}}},
                           {"wlan0-va1", {{"rx", traffic(3072)}, {"tx", traffic(UINT64_MAX)}}}}}});
    const auto rates = [] { return build(wireless_info_get, false).json.dump(); };
    EXPECT_EQ(rates(), R"({"uprate":"20.00","downrate":"72057594037927936.00"})");
    set("wl5g.public.enable", "0");
    EXPECT_EQ(rates(), R"({"uprate":"8.00","downrate":"0.08"})");
    set("wl2g.public.enable", "0");
    EXPECT_EQ(rates(), R"({"uprate":"0.00","downrate":"0.00"})");
}

}  // namespace
