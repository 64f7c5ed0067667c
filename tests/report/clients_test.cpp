#include "report/clients.h"
#include "measure/user_count.h"

#include "report/os_type.h"
#include "tests/report/rich_device.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

constexpr const char *sta_a = "02:00:00:00:00:0a";
constexpr const char *sta_b = "02:00:00:00:00:0b";

class Clients : public test::ReportDevice {
  protected:
    /** One member of each reported client. */
    static std::vector<std::string> listed(const char *member) {
        std::vector<std::string> found;
        const Built built = build(user_list_get);
        EXPECT_EQ(built.result, 0);
        for (const vap::Json &client : built.json) {
            found.push_back(client[member].is_string() ? client[member].get<std::string>()
                                                       : client[member].dump());
        }
        return found;
    }

    static std::string mac(int number) {
        char text[18];
        snprintf(text, sizeof text, "02:00:00:01:%02x:%02x", number / 256, number % 256);
        return text;
    }

    /** A crowd on one SSID; its `number`th station sends `number` KiB a second. */
    static void associate_crowd(int count, int band = 24) {
        vap::Json stations = vap::Json::object();
        for (int i = 0; i < count; ++i) {
            stations[mac(i)] = {{"band", band},
                                {"since", -100},
                                {"ip", "10.0.0." + std::to_string(i % 250)},
                                {"up", {{"bytes", 0}, {"rate", 1024 * i}}}};
        }
        vap::patch_hardware({{"stations", stations}});
    }
};

TEST_F(Clients, AveragesOverTheAssociationAtFirst) {
    associate({{.mac = sta_a, .online = 100, .up = 102400, .down = 51200}});
    EXPECT_THAT(listed("up_rate"), ElementsAre("8.00"));
    EXPECT_THAT(listed("down_rate"), ElementsAre("4.00")) << "no time has passed: still average";
}

TEST_F(Clients, MeasuresSinceTheReportBefore) {
    associate({{.mac = sta_a,
                .online = 100,
                .up = 5,
                .down = 4294966000,
                .up_rate = 1280,
                .down_rate = 128},
               // Joins at this moment: not reported now, and there all the time then.
               {.mac = sta_b, .online = 0, .up = 10240, .up_rate = 1024}});
    build(user_list_get);
    vap::advance(10);
    EXPECT_THAT(listed("up_rate"), ElementsAre("10.00", "8.00"));
    vap::advance(10);
    EXPECT_THAT(listed("down_rate"), ElementsAre("1.00", "0.00")) << "the counter has wrapped";
}

TEST_F(Clients, AveragesForAStationThatCameBackOrMoved) {
    associate({{.mac = sta_a, .online = 100, .up = 102400},
               {.mac = sta_b, .online = 10, .up = 20480, .up_rate = 1024}});
    build(user_list_get);
    associate({{.mac = sta_a, .online = -6, .up = 2048}});  // joins in 6 seconds
    vap::patch_hardware({{"arp", {{sta_b, "10.9.9.9"}}}});
    vap::advance(10);
    EXPECT_THAT(listed("up_rate"), ElementsAre("4.00", "12.00"));
}

// Each SSID stores the whole radio again while the rest is still to be searched: the
// second SSID's station finds itself as it is now, and seems to stand still.
TEST_F(Clients, FindsTheSecondSsidAsItIsNow) {
    set("wl2g.ssid1.enable", "1");
    associate({{.mac = sta_a, .online = 100, .up_rate = 1024},
               {.mac = sta_b, .ssid = 1, .online = 100, .up_rate = 1024}});
    build(user_list_get);
    vap::advance(10);
    EXPECT_THAT(listed("up_rate"), ElementsAre("8.00", "0.00"));
}

TEST_F(Clients, RemembersOnly128) {
    set("wl2g.ssid1.enable", "1");  // stores the 100 again, as far as there is room
    associate_crowd(100);
    build(user_list_get);
    associate({{.mac = sta_b, .band = 5, .online = 100, .up = 102400, .up_rate = 10240}});
    vap::advance(10);
    build(user_list_get);
    vap::advance(10);
    const auto rates = listed("up_rate");
    ASSERT_EQ(rates.size(), 101U);
    EXPECT_EQ(rates[1], "8.00");
    EXPECT_EQ(rates[99], "792.00");
    EXPECT_EQ(rates[100], "20.00") << "it had no room: the average over 120 seconds";
}

TEST_F(Clients, LeavesOutARadioWithTooManyStations) {
    associate_crowd(128);
    EXPECT_EQ(listed("user_mac").size(), 128U);
    associate_crowd(129);
    EXPECT_EQ(listed("user_mac").size(), 0U);
    EXPECT_EQ(build(simple_user_list_get).json.size(), 0U);
    int count = 1;
    EXPECT_EQ(user_num_get(&count), 0);
    EXPECT_EQ(count, 130) << "added to what was there";
}

TEST_F(Clients, ReportsOnlyWhatIsAssociatedWithAnEnabledSsid) {
    associate({{.mac = "02:00:00:00:00:0a", .online = 0},  // this very second
               {.mac = "02:00:00:00:00:0b", .online = 5},
               {.mac = "02:00:00:00:00:0c", .ssid = 1, .online = 5},
               {.mac = "02:00:00:00:00:0d", .band = 5, .online = 5}});
    EXPECT_THAT(listed("user_mac"), ElementsAre("02:00:00:00:00:0B", "02:00:00:00:00:0D"));
    EXPECT_THAT(listed("access_type"), ElementsAre("0", "1"));
    set("wl2g.public.enable", "0");
    EXPECT_THAT(listed("user_mac"), ElementsAre("02:00:00:00:00:0D"));
    int count = 0;
    user_num_get(&count);
    EXPECT_EQ(count, 1);
    vap::fail("get_wifi_ifname", 1, -1);
    EXPECT_THAT(listed("user_mac"), ElementsAre());
}

TEST_F(Clients, TakesTheFirst512ArpEntries) {
    vap::Json arp = {{sta_a, "10.0.0.1"}, {"02:00:00:00:00:0A", "10.0.0.2"}};
    for (int i = 0; i < 510; ++i) {
        arp[mac(i)] = "10.1.1.1";
    }
    arp[sta_b] = "10.0.0.3";  // number 513
    vap::patch_hardware({{"arp", arp}});
    associate({{.mac = sta_a, .online = 5, .ip = "1.1.1.1"},
               {.mac = sta_b, .online = 5, .ip = "2.2.2.2"},
               {.mac = mac(509).c_str(), .online = 5, .ip = "3.3.3.3"}});
    EXPECT_THAT(listed("ip"), ElementsAre("10.0.0.1", "2.2.2.2", "10.1.1.1"));
}

TEST_F(Clients, TakesAnEntryWithoutMacForNobody) {
    vap::patch_hardware({{"arp", {{"00:00:00:00:00:00", "10.0.0.1"}}}});
    associate({{.mac = sta_a, .online = 5, .ip = "1.1.1.1", .in_arp = false}});
    vap::fail("ifaddrs_ethaddr_aton", 1, 1);
    EXPECT_THAT(listed("ip"), ElementsAre("1.1.1.1")) << "its MAC cannot be read";
}

TEST_F(Clients, ClassesOperatingSystems) {
    const std::string classes = "41004444222232";
    set("wl.identifyOS_en", "1");
    for (int i = -1; i < 16; ++i) {
        associate({{.mac = sta_a, .online = 5, .os = i}});
        const bool known = i >= 0 && i < 14;
        EXPECT_THAT(listed("os_type"), ElementsAre(known ? classes.substr(i, 1) : "4")) << i;
    }
    EXPECT_EQ(os_class("Win10"), 2);
    associate({{.mac = sta_a, .online = 5, .os = 1}});
    set("wl.identifyOS_en", "0");
    EXPECT_THAT(listed("os_type"), ElementsAre("4"));
}

TEST_F(Clients, AsksTheDiscoveryServiceFirst) {
    effects();
    build(user_list_get);
    build(simple_user_list_get);
    const std::string request = std::string("autodiscover 01") + std::string(126, '0');
    EXPECT_THAT(effects({"autodiscover"}), ElementsAre(request, request));
}

TEST_F(Clients, SaysWhenThereIsNoRoomForTheArpTable) {
    EXPECT_THAT(output_of(
                    [] {
                        const test::JsonAllocations failing(1);
                        EXPECT_GT(user_list_get(nullptr), 0);
                    },
                    false),
                MatchesRegex("user_list_get,[0-9]+:malloc fail!\n"));
}

TEST_F(Clients, KeepsTheStationsOfTheLastWholeReport) {
    associate({{.mac = sta_a, .online = 100, .up_rate = 1024}});
    build(user_list_get);
    vap::advance(10);
    build([](cJSON *array) {
        const test::JsonAllocations failing(2);  // the first is the ARP table
        return user_list_get(array);
    });
    vap::advance(10);
    EXPECT_THAT(listed("up_rate"), ElementsAre("16.00")) << "measured since the failed one";
}

}  // namespace
