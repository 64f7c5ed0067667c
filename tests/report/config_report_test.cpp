#include "report/config_report.h"

#include "ssid_security.h"
#include "tests/report/rich_device.h"

namespace {

using ::testing::HasSubstr;

class ConfigReport : public test::ReportDevice {
  protected:
    static vap::Json ssid(int slot = 0, const char *stem = "wl2g.ssid") {
        return build([&](cJSON *array) { return ssid_config_get(slot, array, stem); }).json[0];
    }
    static vap::Json maintenance() { return build(maint_data_get, false).json; }
};

TEST_F(ConfigReport, CodesEncryption) {
    struct Row {
        const char *security, *type;
        int code;
        bool passphrase;
    } const rows[] = {
        {"none", "psk2", 0, false},  // a type that is left over
        {"wpapsk", "psk", 1, true},  {"wpapsk", "psk2", 2, true}, {"wpapsk", "psk psk2", 5, false},
        {"wpapsk", "PSK", 5, false}, {"wpapsk", "", 5, false},    {"", "psk", 5, false},
        {"wep", "psk2", 5, false},
    };
    for (const Row &row : rows) {
        set_all({{"wl2g.ssid3.security", row.security}, {"wl2g.ssid3.wpapsk_type", row.type}});
        const vap::Json object = ssid(3);
        EXPECT_EQ(object["encrypt"], row.code) << row.security << row.type;
        EXPECT_EQ(object.begin().key(), row.passphrase ? "passwd" : "name");
    }
}

TEST_F(ConfigReport, CodesCiphers) {
    for (size_t code = 0; code < ssid_ciphers.size(); ++code) {
        set("wl5g.ssid1.wpapsk_crypto", ssid_ciphers[code]);
        EXPECT_EQ(ssid(1, "wl5g.ssid")["security"], code);
    }
    for (const char *other : {"", "AES", "aes+tkip"}) {
        set("wl5g.ssid1.wpapsk_crypto", other);
        EXPECT_EQ(ssid(1, "wl5g.ssid")["security"], 0);
    }
}

TEST_F(ConfigReport, ReadsAMissingSlotAsEmpty) {
    EXPECT_EQ(ssid(11).dump(),
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
        {"1111111", "[0,0,0,0,0,0,0]"},   // one short
        {"1111111x", "[0,0,0,0,0,0,0]"},
        {"", "[0,0,0,0,0,0,0]"},
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

TEST_F(ConfigReport, KeepsWhatWasAddedWhenMemoryRunsOut) {
    set("sys.schedulereboot.type", "1");
    const std::string whole = build(maint_data_get, false).text;
    int failing = 0;
    Built built{-1, {}, ""};
    while (built.result != 0) {
        ++failing;
        built = build(
            [&](cJSON *object) {
                const test::JsonAllocations allocations(failing);
                return maint_data_get(object);
            },
            false);
        if (built.result != 0) {
            EXPECT_EQ(built.result, -1);
            EXPECT_EQ(built.json.contains("schedule_reboot"), failing > 4) << failing;
        }
    }
    EXPECT_EQ(built.text, whole);
    EXPECT_GT(failing, 10);
}

TEST_F(ConfigReport, StampsTheWirelessConfiguration) {
    set_all({{"nx.wireless_timestamp", "123"}, {"sys.timezone", "20"}});
    struct Row {
        const char *mode;
        int stamp;
    } const rows[] = {{"0", 0}, {"1", 123}, {"3", 0}, {"", 0}};
    for (const Row &row : rows) {
        set("nx.manage.mode", row.mode);
        EXPECT_EQ(wireless_timestamp_get(), row.stamp) << row.mode;
    }
    set("nx.manage.mode", "2");
    vap::advance(30);
    EXPECT_EQ(wireless_timestamp_get(), 1'700'000'030 + 43200 - 3600 * 20);
    set("sys.timezone", "17.75");  // the fraction of an hour does not count
    EXPECT_EQ(wireless_timestamp_get(), 1'700'000'030 + 43200 - 3600 * 17);
    set("sys.up.timestamp", "1600000000");
    EXPECT_EQ(wireless_timestamp_get(), 1'600'000'030);
    set("sys.up.timestamp", "2147483647");
    EXPECT_EQ(wireless_timestamp_get(), 2'147'483'647);
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
