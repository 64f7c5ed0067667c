#include "net/load_checks.h"

#include "net/ap_param.h"
#include "net/lan_port.h"
#include "net/samplers.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using vap::Json;

class LoadChecks : public test::Device {
  protected:
    using Check = int (*)(cJSON *);

    /** Result of a check and the records that it appended. */
    static std::pair<int, std::string> run(Check check) {
        cJSON *results = cJSON_CreateArray();
        const int result = check(results);
        char *text = cJSON_PrintUnformatted(results);
        std::pair<int, std::string> ran(result, text);
        cJSON_free(text);
        cJSON_Delete(results);
        return ran;
    }

    static std::string record(int type, int result) {
        return R"([{"check_type":)" + std::to_string(type) + R"(,"result":)" +
               std::to_string(result) + "}]";
    }

    static void set_channel_use(const char *radio, int channel, int use) {
        vap::patch_hardware(
            {{"radios",
              {{radio,
                {{"channel", channel}, {"channel_use", {{std::to_string(channel), use}}}}}}}});
    }

    static void set_ports(const Json &first, const Json &second) {
        vap::patch_hardware({{"ports", {{"1", first}, {"3", second}}}});
    }

    static void associate(int count) {
        Json stations = Json::object();
        for (int i = 0; i < count; ++i) {
            stations["02:00:00:00:00:" + std::to_string(10 + i)] = {{"band", i % 2 ? 24 : 5}};
        }
        vap::patch_hardware({{"stations", nullptr}});
        vap::patch_hardware({{"stations", stations}});
    }

    /** Counters of an interface from now on. */
    static void set_counters(const char *ifname, uint64_t rx, uint64_t tx) {
        vap::patch_hardware(
            {{"interfaces",
              {{ifname,
                {{"rx", {{"bytes", rx}, {"rate", 0}}}, {"tx", {{"bytes", tx}, {"rate", 0}}}}}}}});
    }

    static std::string wireless_rates(int band) {
        float tx = -1;
        float rx = -1;
        EXPECT_EQ(get_wireless_cur_rate(band, &tx, &rx), 0);
        char text[64];
        snprintf(text, sizeof text, "%g %g", tx, rx);
        return text;
    }

    static std::pair<int, int> wired_rates() {
        std::pair<int, int> rates{-1, -1};
        EXPECT_EQ(get_eth0_cur_rate(&rates.first, &rates.second), 0);
        return rates;
    }
};

/* ---- models ------------------------------------------------------------ */

TEST_F(LoadChecks, FindsEachModel) {
    for (const ApModel &model : ap_param) {
        set("ap.apname", model.name);
        int stations = 0;
        int wired = 0;
        int rate_24 = 0;
        int rate_5 = -1;
        EXPECT_EQ(get_ap_sta_num_max(&stations), 0);
        EXPECT_EQ(get_eth0_rate_max(&wired), 0);
        EXPECT_EQ(get_wireless_rate_max(&rate_24, &rate_5), 0);
        EXPECT_EQ(stations, model.max_stations);
        EXPECT_EQ(wired, model.wired_rate);
        EXPECT_EQ(rate_24, model.rate_24);
        EXPECT_EQ(rate_5, model.rate_5);
    }
}

TEST_F(LoadChecks, MatchesAsManyCharactersAsTheNameHas) {
    struct Row {
        const char *name;
        int result, stations;
    } const rows[] = {
        {"ZX-A", 0, 10},                        // the start of every row: the first one
        {"ZX-A7", 0, 80}, {"ZX-A7V1.0", 0, 0},  // a version ending matches no row
        {"zx-a7", 0, 0},  {"a name that is longer than any model", 0, 0},
        {"", -1, 0},
    };
    for (const Row &row : rows) {
        set("ap.apname", row.name);
        int stations = 0;
        EXPECT_EQ(get_ap_sta_num_max(&stations), row.result) << row.name;
        EXPECT_EQ(stations, row.stations) << row.name;
    }
    EXPECT_THAT(output_of([] {
                    int rate = 0;
                    get_eth0_rate_max(&rate);
                }),
                MatchesRegex("\\[get_eth0_rate_max\\]\\[[0-9]+\\] : ap name is NULL.\n"));
}

/* ---- channels ---------------------------------------------------------- */

TEST_F(LoadChecks, JudgesTheUseOfBothChannels) {
    set_channel_use("24", 6, 60);
    set_channel_use("5", 149, 0);
    EXPECT_EQ(run(channel_usage), std::pair(0, record(1, 0)));
    set_channel_use("24", 6, 61);
    EXPECT_EQ(run(channel_usage), std::pair(0, record(1, -1)));
    set("wl2g.public.enable", "0");
    EXPECT_THAT(output_of([] { EXPECT_EQ(check_channel_usage(24), 0); }),
                ::testing::AllOf(HasSubstr("the 24g wifi disabled!\n"),
                                 HasSubstr("the 24g get channel err!\n")));
    EXPECT_EQ(run(channel_usage), std::pair(0, record(1, 0)));
    set_channel_use("5", 149, 100);
    EXPECT_EQ(run(channel_usage), std::pair(0, record(1, -1)));
    EXPECT_THAT(effects({"popen"}),
                ::testing::Contains(HasSubstr(
                    "popen cat /proc/wlan0/ch_util | grep -w 'Channel:149' | awk '{print $4}' | "
                    "awk -F : '{print $2}' r")));
}

TEST_F(LoadChecks, ReadsTheUseOfOneChannel) {
    int use = 7;
    write_file("/proc/wlan9/ch_util", "Channel:1 a b Utilization:31\nChannel:11 a b Use:99x\n");
    EXPECT_EQ(get_current_channel_usage("wlan9", 1, &use), 0);
    EXPECT_EQ(use, 31);
    get_current_channel_usage("wlan9", 11, &use);
    EXPECT_EQ(use, 99);
    get_current_channel_usage("wlan9", 111, &use);
    EXPECT_EQ(use, 0) << "no such line";
    effects();
    for (const char *name : {"", "wlan 9", "wlan9'", "\"wlan9\"", "-n", "wlan9;reboot", "$(id)"}) {
        use = 7;
        EXPECT_THAT(output_of([&] { get_current_channel_usage(name, 1, &use); }, false),
                    MatchesRegex("IN get_current_channel_usage on [0-9]+ cmd check error\n"));
        EXPECT_EQ(use, 7);
    }
    EXPECT_THAT(effects(), IsEmpty()) << "nothing reached a shell";
}

/* ---- stations ---------------------------------------------------------- */

TEST_F(LoadChecks, JudgesTheNumberOfStations) {
    struct Row {
        const char *model;
        int stations, result, verdict;
    } const rows[] = {
        {"ZX-A1", 8, 0, 0},  // 80 per cent of 10 is no more than that
        {"ZX-A1", 9, 1, -1}, {"ZX-A3", 20, 0, 0}, {"ZX-A3", 21, 1, -1},
        {"other", 0, 0, 0},  {"other", 1, 1, -1},  // an unknown model has a limit of none
        {"", 9, -1, 0},
    };
    for (const Row &row : rows) {
        set("ap.apname", row.model);
        associate(row.stations);
        EXPECT_EQ(run(check_sta_num), std::pair(row.result, record(2, row.verdict)))
            << row.model << " " << row.stations;
    }
    set("ap.apname", "ZX-A1");
    EXPECT_THAT(output_of([] { run(check_sta_num); }),
                HasSubstr("] : sta num is greater than 80%!\n"));
}

/* ---- rates ------------------------------------------------------------- */

TEST_F(LoadChecks, SamplesTheWiredUplink) {
    wired_rates();
    vap::advance(10);
    set_counters("eth0", 1'000'000, 2'000'000);
    set_counters("eth1", 5, 5);
    wired_rates();
    vap::advance(10);
    set_counters("eth0", 1'010'239, 2'102'400);
    EXPECT_EQ(wired_rates(), std::pair(80, 0)) << "bytes below a kibibyte a second are none";
    set_counters("eth0", 1'010'239, 2'104'448);
    EXPECT_EQ(wired_rates(), std::pair(16, 0)) << "within a second, the plain difference";
    vap::advance(10);
    set_counters("eth0", 20'480, 2'104'448);
    EXPECT_EQ(wired_rates(), std::pair(0, 16)) << "a counter that began again";
    set("wans.flag", "1");
    vap::advance(10);
    EXPECT_EQ(wired_rates(), std::pair(0, 0)) << "the other interface";
}

TEST_F(LoadChecks, CountsA24GhzSsidOnlyUnderTheOddKey) {
    set_counters("wlan1", 0, 0);
    wireless_rates(24);
    vap::advance(8);
    set_counters("wlan1", 1 << 20, 2 << 20);
    EXPECT_EQ(wireless_rates(24), "0 0") << "wl2g.ssid0.enable does not count";
    set("wl2g.ssid.0.enable", "1");
    vap::advance(8);
    EXPECT_EQ(wireless_rates(24), "2 1");
    set("wl2g.public.enable", "0");
    EXPECT_EQ(wireless_rates(24), "-1 -1") << "a radio that is off leaves the outputs";
}

TEST_F(LoadChecks, KeepsBothRadiosSamplesInOnePlace) {
    set("wl2g.ssid.0.enable", "1");
    set_counters("wlan1", 0, 0);
    set_counters("wlan0", 0, 0);
    vap::advance(64);
    wireless_rates(24);
    set_counters("wlan0", 8 << 20, 16 << 20);
    vap::advance(64);
    EXPECT_EQ(wireless_rates(5), "1 0.5") << "averaged since boot, 128 seconds ago";
    vap::advance(128);
    EXPECT_EQ(wireless_rates(5), "0.5 0.25") << "and again";
    set_counters("wlan1", 24 << 20, 24 << 20);
    vap::advance(64);
    EXPECT_EQ(wireless_rates(24), "1 2") << "measured from the 5 GHz sample";
}

TEST_F(LoadChecks, JudgesTheWirelessRates) {
    set("wl2g.ssid.0.enable", "1");
    set("ap.apname", "ZX-A5");  // 300 and 870 Mbit/s
    constexpr uint64_t mbit = 131072;
    struct Row {
        uint64_t rx_24, tx_24, rx_5, tx_5;  // Mbit/s
        int result;
    } const rows[] = {
        {210, 210, 9999, 609, 0},  // what the 5 GHz radio receives is not judged
        {211, 0, 0, 0, -1},
        {0, 211, 0, 0, -1},
        {0, 0, 0, 610, -1},
    };
    for (const Row &row : rows) {
        set_counters("wlan1", 0, 0);
        set_counters("wlan0", 0, 0);
        wireless_rates(24);
        vap::advance(10);
        const auto uptime = static_cast<uint64_t>(10 * (&row - rows + 1));
        set_counters("wlan1", 10 * row.rx_24 * mbit, 10 * row.tx_24 * mbit);
        set_counters("wlan0", uptime * row.rx_5 * mbit, uptime * row.tx_5 * mbit);
        EXPECT_EQ(run(check_wifi_throughput), std::pair(row.result, record(3, row.result)))
            << row.rx_24 << " " << row.tx_24 << " " << row.tx_5;
    }
    set("ap.apname", "ZX-A1");  // a model without 5 GHz: any of its traffic is too much
    set_counters("wlan1", 0, 0);
    set_counters("wlan0", 0, 1000);
    EXPECT_EQ(run(check_wifi_throughput).first, -1);
}

/* ---- wired ports ------------------------------------------------------- */

TEST_F(LoadChecks, ReadsTheLinkOfAPort) {
    struct Row {
        Json port;
        int link, speed, duplex;
    } const rows[] = {
        {{{"link", true}, {"speed", 1000}, {"duplex", "full"}}, 1, 1000, 2},
        {{{"link", true}, {"speed", 100}, {"duplex", "half"}}, 1, 100, 1},
        {{{"link", true}, {"speed", 10}, {"duplex", "full"}}, 1, 10, 2},
        {{{"link", true},
          {"speed", nullptr},
          {"speed_code", 7},
          {"duplex", nullptr},
          {"duplex_code", 9}},
         1,
         100,
         -1},                                                                        // other codes
        {{{"link", true}, {"speed", nullptr}, {"speed_code", nullptr}}, 1, -1, -1},  // not told
        {{{"link", false}}, 0, -1, -1},
    };
    for (const Row &row : rows) {
        set_ports(row.port, {{"link", false}});
        int speed = -1;
        int duplex = -1;
        EXPECT_EQ(get_lan_port_status(1, &speed, &duplex), row.link) << row.port;
        EXPECT_EQ(speed, row.speed) << row.port;
        EXPECT_EQ(duplex, row.duplex) << row.port;
    }
}

TEST_F(LoadChecks, JudgesTheWiredPorts) {
    const Json down = {{"link", false}};
    const auto up = [](int speed) {
        return Json{{"link", true}, {"speed", speed}, {"duplex", "full"}};
    };
    struct Row {
        const char *model;
        Json first, second;
        int result;
    } const rows[] = {
        {"ZX-A5", up(100), down, 1},     {"ZX-A5", up(1000), down, 0},
        {"ZX-A5", up(100), up(1000), 0},  // one port at full speed is enough
        {"ZX-A5", down, down, 1},        {"ZX-A1", down, up(100), 0},
        {"ZX-A1", up(10), up(10), 1},    {"other", down, down, 0},  // nothing to reach
    };
    for (const Row &row : rows) {
        set("ap.apname", row.model);
        set_ports(row.first, row.second);
        std::pair<int, std::string> ran;
        EXPECT_THAT(output_of([&] { ran = run(check_eth0_throughput); }, false),
                    MatchesRegex("get_lan_port_id_by_index,[0-9]+ port index error\n"))
            << "the third port that there is none of";
        EXPECT_EQ(ran, std::pair(row.result, record(5, -row.result)))
            << row.model << row.first << row.second;
    }
    EXPECT_EQ(get_lan_port_id_by_index(0), 1);
    EXPECT_EQ(get_lan_port_id_by_index(1), 3);
    EXPECT_EQ(get_lan_port_id_by_index(-1), 0);
}

TEST_F(LoadChecks, AppendNothingThatIsNotWhole) {
    for (const Check check :
         {channel_usage, check_sta_num, check_wifi_throughput, check_eth0_throughput}) {
        cJSON *results = cJSON_CreateArray();
        for (int failing = 1; failing <= 3; ++failing) {
            const test::JsonAllocations allocations(failing);
            const int result = check(results);
            EXPECT_TRUE(result == -1 || check == check_wifi_throughput ||
                        check == check_eth0_throughput);
        }
        EXPECT_EQ(cJSON_GetArraySize(results), 0);
        cJSON_Delete(results);
    }
}

}  // namespace
