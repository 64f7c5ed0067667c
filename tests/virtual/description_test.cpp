/* The hardware description: defaults, nonsense, changes by others; the device
   database. */
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <future>

#include "platform/devdb.h"
#include "platform/holymsg.h"
#include "platform/netif.h"
#include "platform/wifi.h"
#include "tests/support/support.h"
#include "virtual/device/device.h"
#include "virtual/hardware/equipment.h"

namespace {

std::atomic<bool> no_watch_left = false;

}  // namespace

/** In front of libc's, for libvap too. */
extern "C" int inotify_init1(int flags) noexcept {
    if (no_watch_left) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_init1, flags));
}

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
    Json whole = vap::hardware();
    whole["stations"]["02:57:00:00:00:01"] = {{"band", 24}, {"since", 5}, {"up", {{"rate", 1}}}};
    whole["firmware"]["verdicts"] = {{"type", 2}};
    const Json nonsense[] = {Json(1e300),
                             Json(NAN),
                             Json("text"),
                             Json::array({1, nullptr, Json::object()}),
                             Json(true),
                             Json(-1e300),
                             {{"x", 1}, {"24", "y"}, {"1", Json::array({2})}, {"", nullptr}}};
    for (const auto &[section, value] : whole.items()) {
        for (const Json &odd : nonsense) {
            Json description = whole;
            description[section] = odd;
            const vap::Equipment equipment = vap::read_equipment(description);
            EXPECT_EQ(equipment.interface("br0") != nullptr, section != "interfaces");
            EXPECT_EQ(equipment.port(1) != nullptr, section != "ports" || odd.contains("1"));
        }
    }
    const std::set<std::string> texts{"channel", "bandwidth", "signal", "bit_rate"};
    const Json leaves = whole.flatten();
    for (const auto &[path, value] : leaves.items()) {
        for (const Json &odd : nonsense) {
            Json description = whole;
            description[Json::json_pointer(path)] = odd;
            testing::internal::CaptureStderr();
            vap::read_equipment(description);
            const std::string said = testing::internal::GetCapturedStderr();
            if (value.is_number() && !texts.contains(path.substr(path.rfind('/') + 1))) {
                EXPECT_THAT(said, testing::HasSubstr(path + ": is no")) << odd;
            }
        }
    }
}

TEST_F(Description, ACountIsDefinedHoweverLongItRuns) {
    vap::Counter counter{.rate = 1e12};
    EXPECT_EQ(counter.now(1e10), 1864712049423024128u) << "it wraps at 64 bits";
    EXPECT_EQ(counter.now(-1e10), 0u);
    EXPECT_THROW(vap::patch_hardware({{"interfaces", {{"br0", {{"rx", {{"rate", NAN}}}}}}}}),
                 std::runtime_error);
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

/** Without a call of the agent, also on a machine that has no watch left. */
TEST_F(Description, AReplacedFileIsFollowed) {
    const std::filesystem::path device = folder() / "ap";
    for (const bool watched : {true, false}) {
        no_watch_left = !watched;
        testing::internal::CaptureStderr();
        vap::open_device(device, {.time = vap::Time::manual, .restarts_process = false});
        EXPECT_EQ(testing::internal::GetCapturedStderr().find("once a second") == std::string::npos,
                  watched);
        no_watch_left = false;
        std::promise<std::string> told;
        holymsg_run_async();
        holymsg_subscribe(
            "net_topo.server_port.from_kernel",
            [](const char *, const char *text, int, void *user) {
                static_cast<std::promise<std::string> *>(user)->set_value(text);
            },
            &told);
        Json changed = vap::hardware();
        changed["topology"] = {{"port", watched ? 3 : 4}};
        std::ofstream(device / "new") << changed;
        std::filesystem::rename(device / "new", device / "hardware.json");
        std::future<std::string> news = told.get_future();
        ASSERT_EQ(news.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        EXPECT_EQ(news.get(), watched ? R"({"port":3})" : R"({"port":4})");
    }
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

    const std::filesystem::path file = folder() / "ap/db/default.alldevs.json";
    const auto document = [&] { return Json::parse(std::ifstream(file)); };
    EXPECT_EQ(document().at("delayed"), true);
    EXPECT_EQ(document().at("columns")[0],
              (Json{{"name", "mac"}, {"kind", "text"}, {"width", 32}, {"key", true}}));
    Json filled = document();
    filled["rows"].push_back({"02:57:00:00:00:01", 3});
    std::ofstream(file) << filled;
    EXPECT_EQ(db_table_init("default", "alldevs", columns, 2), table);
    EXPECT_EQ(document().at("rows"), filled.at("rows")) << "a new start finds them";

    const db_column bad[] = {{0, "mac", DB_KIND_TEXT, 0, 0}};
    EXPECT_EQ(db_table_init("default", "bad", bad, 1), nullptr) << "a text without room";
    EXPECT_EQ(db_table_init("default", "../bad", columns, 2), nullptr);
    EXPECT_EQ(db_table_init("default", "bad", columns, 0), nullptr);
    std::ofstream(file) << "[" << std::string(200'000, '[');
    EXPECT_EQ(db_table_init("default", "alldevs", columns, 2), nullptr) << "broken by hand";
    EXPECT_EQ(db_table_set_delay_sync_memdb(table, 0), -1);
    EXPECT_EQ(std::filesystem::file_size(file), 200'001u) << "and left alone";
    std::ofstream(file) << filled;
    vap::fail("db_table_init");
    EXPECT_EQ(db_table_init("default", "alldevs", columns, 2), nullptr);
}

}  // namespace
