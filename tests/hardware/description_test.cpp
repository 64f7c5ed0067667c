/* The hardware description: defaults, nonsense, changes by others; the device
   database. */
#include <fstream>
#include <thread>

#include "platform/devdb.h"
#include "platform/netif.h"
#include "platform/wifi.h"
#include "tests/support/support.h"
#include "virtual/ap/device.h"
#include "virtual/ap/equipment.h"

namespace {

using test::Device;
using vap::Json;

class Description : public Device {};

TEST_F(Description, EachDeviceHasAddressesOfItsOwn) {
    std::set<std::string> macs;
    size_t given = 0;
    for (const char *serial : {"NXT0000000001", "NXT0000000002", "NXT0000000003"}) {
        std::set<std::string> own;
        const Json hardware = vap::default_hardware({.serial = serial});
        for (const Json &interface : hardware.at("interfaces")) {
            own.insert(interface.at("mac"));
        }
        for (const Json &bssid : hardware.at("bssids")) {
            own.insert(bssid);
        }
        given += own.size();
        macs.merge(own);
        EXPECT_EQ(hardware, vap::default_hardware({.serial = serial})) << "the same each time";
    }
    EXPECT_EQ(macs.size(), given);
}

TEST_F(Description, AMissingSectionIsThatOfANewDevice) {
    Json without = vap::hardware();
    for (auto &[section, value] : without.items()) {
        value = nullptr;
    }
    vap::patch_hardware(without);
    ASSERT_EQ(vap::hardware(), Json::object());
    if_stats stats{};
    EXPECT_STREQ(get_eth_name(ETH_NAME_RADIO_5G), "wlan0");
    EXPECT_EQ(sys_get_if_statistics("br0", &stats), 0);
    EXPECT_EQ(hal_get_port_link_status(1), 1);
}

/** Whatever a person writes into the file, what makes sense still holds. */
TEST_F(Description, NonsenseIsLeftOut) {
    const Json whole = vap::hardware();
    const Json nonsense[] = {
        Json(5),    Json("text"), Json::array({1, nullptr, Json::object()}),
        Json(true), Json(-1e300), {{"x", 1}, {"24", "y"}, {"1", Json::array({2})}, {"", nullptr}}};
    testing::internal::CaptureStderr();
    for (const auto &[section, value] : whole.items()) {
        for (const Json &odd : nonsense) {
            Json description = whole;
            description[section] = odd;
            const vap::Equipment equipment = vap::read_equipment(description);
            EXPECT_EQ(equipment.interface("br0") != nullptr, section != "interfaces");
            EXPECT_EQ(equipment.port(1) != nullptr, section != "ports" || odd.contains("1"));
        }
        for (const auto &[member, inner] : value.items()) {
            for (const Json &odd : nonsense) {
                Json description = whole;
                if (value.is_object()) {
                    description[section][member] = odd;
                    vap::read_equipment(description);
                }
            }
        }
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("/interfaces"));
}

TEST_F(Description, OneBadStationDoesNotHideTheOthers) {
    testing::internal::CaptureStderr();
    vap::patch_hardware({{"stations",
                          {{"no mac", {{"band", 24}}},
                           {"02:57:00:00:00:01", {{"band", 7}}},
                           {"02:57:00:00:00:02", {{"band", 5}, {"ssid", 4}}},
                           {"02:57:00:00:00:aa", {{"band", 24}}},
                           {"02:57:00:00:00:AA", {{"band", 24}}}}}});
    wifi_sta list[8];
    EXPECT_EQ(wifi_get_client_lists(list, "wlan1", 8), 1);
    EXPECT_EQ(wifi_get_client_lists(list, "wlan0", 8), 0);
    const std::string said = testing::internal::GetCapturedStderr();
    for (const char *named : {"no mac", "00:01", "00:02", "stands there twice"}) {
        EXPECT_THAT(said, testing::HasSubstr(named));
    }
}

TEST_F(Description, AnotherProcessMayReplaceTheFile) {
    Json changed = vap::hardware();
    changed["radios"]["24"]["channel"] = 13;
    std::ofstream(folder() / "ap/new") << changed.dump();
    std::filesystem::rename(folder() / "ap/new", folder() / "ap/hardware.json");
    wifi_radio_status status{};
    for (int tries = 0; tries < 200 && std::string(status.channel) != "13"; tries++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_EQ(wifi_get_status_list(24, 0, &status), 0);
    }
    EXPECT_STREQ(status.channel, "13");
}

TEST_F(Description, TablesAreDeclaredOnceAndKept) {
    const db_column columns[] = {{0, "mac", DB_KIND_TEXT, 32, DB_FLAG_KEY},
                                 {1, "port", DB_KIND_INTEGER, 0, 0}};
    void *table = db_table_init("default", "alldevs", columns, 2);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(db_table_init("default", "alldevs", columns, 2), table);
    EXPECT_NE(db_table_init("default", "others", columns, 1), table);
    EXPECT_EQ(db_table_set_delay_sync_memdb(table, 1), 0);
    EXPECT_EQ(db_table_set_delay_sync_memdb(table, 2), -1);
    EXPECT_EQ(db_table_set_delay_sync_memdb(this, 1), -1) << "no handle";

    std::ifstream file(folder() / "ap/db/default.alldevs.json");
    const Json document = Json::parse(file);
    EXPECT_EQ(document.at("delayed"), true);
    EXPECT_EQ(document.at("columns")[0],
              (Json{{"name", "mac"}, {"kind", "text"}, {"width", 32}, {"key", true}}));

    const db_column bad[] = {{0, "mac", DB_KIND_TEXT, 0, 0}};
    EXPECT_EQ(db_table_init("default", "bad", bad, 1), nullptr) << "a text without room";
    EXPECT_EQ(db_table_init("default", "../bad", columns, 2), nullptr);
    EXPECT_EQ(db_table_init("default", "bad", columns, 0), nullptr);
    vap::fail("db_table_init");
    EXPECT_EQ(db_table_init("default", "alldevs", columns, 2), nullptr);
}

}  // namespace
