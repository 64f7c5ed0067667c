#include "net/load_checks.h"

#include "measure/rates.h"
#include "net/ap_param.h"
#include "net/lan_port.h"
#include "tests/net/records.h"

namespace {

using test::run;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using vap::Json;

class LoadChecks : public test::Device {
  protected:
    /** Limits of a model: stations, wired, 2.4 GHz and 5 GHz Mbit/s. */
    std::string limits_of(const std::string &model) {
        set("ap.apname", model);
        int stations = 0, wired = 0, rate_24 = 0, rate_5 = 0;
        const int result = get_ap_sta_num_max(&stations);
        EXPECT_EQ(get_eth0_rate_max(&wired), result);
        EXPECT_EQ(get_wireless_rate_max(&rate_24, &rate_5), result);
        return std::to_string(result) + ": " + std::to_string(stations) + " " +
               std::to_string(wired) + " " + std::to_string(rate_24) + " " + std::to_string(rate_5);
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
        uint64_t tx = 1;
        uint64_t rx = 1;
        EXPECT_EQ(get_eth0_cur_rate(&tx, &rx), 0);
        return {static_cast<int>(tx), static_cast<int>(rx)};
    }
};

TEST_F(LoadChecks, KnowsTheLimitsOfEachModel) {
    struct Row {
        const char *model, *limits;
    } const rows[] = {
        {"ZX-A1", "0: 10 100 300 0"},
        {"ZX-A2", "0: 30 100 300 870"},
        {"ZX-A3", "0: 25 100 300 0"},
        {"ZX-A4", "0: 50 100 300 870"},
        {"ZX-A5", "0: 70 1000 300 870"},
        {"ZX-A6", "0: 70 1000 300 870"},
        {"ZX-A7", "0: 80 1000 450 870"},
        {"ZX-A8", "0: 70 1000 300 870"},
        {"ZX-A9", "0: 70 1000 300 870"},
        {"ZX-A", "0: 10 100 300 0"},  // the start of every row: the first one
        {"ZX-A7V1.0", "0: 0 0 0 0"},  // a version ending matches no row
        {"zx-a7", "0: 0 0 0 0"},
        {"", "-1: 0 0 0 0"},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(limits_of(row.model), row.limits) << row.model;
    }
}

TEST_F(LoadChecks, JudgesTheUseOfBothChannels) {
    struct Row {
        const char *enable;  // 2.4 GHz
        int use_24, use_5;
        const char *record;
    } const rows[] = {
        {"1", 60, 0, "1:0"},
        {"1", 61, 0, "1:-1"},
        {"0", 61, 60, "1:0"},
        {"0", 61, 61, "1:-1"},
    };
    for (const Row &row : rows) {
        set("wl2g.public.enable", row.enable);
        set_channel_use("24", 6, row.use_24);
        set_channel_use("5", 149, row.use_5);
        effects();
        EXPECT_THAT(run(channel_usage), ElementsAre("0", row.record)) << row.use_24;
        EXPECT_THAT(effects({"popen"}), SizeIs(*row.enable == '1' ? 2 : 1)) << "each that is on";
    }
    vap::fail("popen");
    EXPECT_THAT(run(channel_usage), ElementsAre("0", "1:0")) << "a use that cannot be read is none";
    int channel = 0;
    EXPECT_EQ(get_cur_channel(&channel, 7), 0);
    EXPECT_EQ(channel, 149) << "any band but 24 is 5 GHz";
}

TEST_F(LoadChecks, ReadsTheUseOfOneChannel) {
    int use = 7;
    write_file("/proc/wlan9/ch_util", "Channel:1 a b Utilization:31\nChannel:11 a b Use:" +
                                          std::string(20, '0') + "99x\n");
    EXPECT_EQ(get_current_channel_usage("wlan9", 1, &use), 0);
    EXPECT_EQ(use, 31);
    EXPECT_EQ(get_current_channel_usage("wlan9", 11, &use), 0);
    EXPECT_EQ(use, 99);
    EXPECT_THAT(
        effects({"popen"}),
        ElementsAre("popen cat /proc/wlan9/ch_util | grep -w 'Channel:1' | awk '{print $4}' | "
                    "awk -F : '{print $2}' re",
                    ::testing::_));
    vap::fail("popen");
    EXPECT_EQ(get_current_channel_usage("wlan9", 1, &use), -1);
    effects();
    for (const char *name : {"", "wlan 9", "wlan9'", "\"wlan9\"", "-n", "$(id)"}) {
        EXPECT_THAT(
            output_of([&] { EXPECT_EQ(get_current_channel_usage(name, 1, &use), -1); }, false),
            MatchesRegex("IN get_current_channel_usage on [0-9]+ cmd check error\n"));
    }
    EXPECT_EQ(use, 99);
    EXPECT_THAT(effects(), IsEmpty()) << "nothing reached a shell";
    get_current_channel_usage("wlan9", 111, &use);
    EXPECT_EQ(use, 0) << "no such line";
}

TEST_F(LoadChecks, JudgesTheNumberOfStations) {
    struct Row {
        const char *model;
        int stations;
        const char *result, *record;
    } const rows[] = {
        {"ZX-A1", 8, "0", "2:0"},  // 80 per cent of 10 is no more than that
        {"ZX-A1", 9, "1", "2:-1"}, {"ZX-A3", 20, "0", "2:0"},
        {"other", 0, "0", "2:0"},  {"other", 1, "1", "2:-1"},  // an unknown model's limit is 0
        {"", 9, "-1", "2:0"},
    };
    for (const Row &row : rows) {
        set("ap.apname", row.model);
        associate(row.stations);
        EXPECT_THAT(run(check_sta_num), ElementsAre(row.result, row.record))
            << row.model << " " << row.stations;
    }
}

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
    set("wl5g.ssid1.enable", "1");
    set_counters("wlan0", 2 << 20, 4 << 20);
    set_counters("wlan0-va1", 6 << 20, 12 << 20);
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
    constexpr double mbit = 131072;
    struct Row {
        double rx_24, tx_24, rx_5, tx_5;  // Mbit/s
        const char *result;
    } const rows[] = {
        {210, 210, 9999, 609, "0"},  // what the 5 GHz radio receives is not judged
        {210.1, 0, 0, 0, "-1"},
        {0, 210.1, 0, 0, "-1"},
        {0, 0, 0, 609.1, "-1"},
    };
    double uptime = 0;
    for (const Row &row : rows) {
        set_counters("wlan1", 0, 0);
        set_counters("wlan0", 0, 0);
        wireless_rates(24);
        vap::advance(10);
        uptime += 10 * mbit;
        set_counters("wlan1", static_cast<uint64_t>(10 * mbit * row.rx_24),
                     static_cast<uint64_t>(10 * mbit * row.tx_24));
        set_counters("wlan0", static_cast<uint64_t>(uptime * row.rx_5),
                     static_cast<uint64_t>(uptime * row.tx_5));
        EXPECT_THAT(run(check_wifi_throughput),
                    ElementsAre(row.result, std::string("3:") + row.result))
            << row.rx_24 << " " << row.tx_24 << " " << row.tx_5;
    }
    set("ap.apname", "ZX-A1");  // a model without 5 GHz: any of its traffic is too much
    set_counters("wlan1", 0, 0);
    set_counters("wlan0", 0, 1000);
    EXPECT_EQ(run(check_wifi_throughput)[0], "-1");
}

TEST_F(LoadChecks, ReadsTheLinkOfAPort) {
    struct Row {
        const char *port;
        int link, speed, duplex;
    } const rows[] = {
        {R"({"link":true,"speed":1000,"duplex":"full"})", 1, 1000, 2},
        {R"({"link":true,"speed":100,"duplex":"half"})", 1, 100, 1},
        {R"({"link":true,"speed":10,"duplex":"full"})", 1, 10, 2},
        {R"({"link":true,"speed":null,"speed_code":7,"duplex":null,"duplex_code":9})", 1, 100, -1},
        {R"({"link":true,"speed":null,"speed_code":null})", 1, -1, -1},  // not told
        {R"({"link":false})", 0, -1, -1},
    };
    for (const Row &row : rows) {
        set_ports(Json::parse(row.port), {{"link", false}});
        int speed = -1;
        int duplex = -1;
        EXPECT_EQ(get_lan_port_status(1, &speed, &duplex), row.link) << row.port;
        EXPECT_EQ(speed, row.speed) << row.port;
        EXPECT_EQ(duplex, row.duplex) << row.port;
    }
}

TEST_F(LoadChecks, JudgesTheWiredPorts) {
    struct Row {
        const char *model;
        int first, second;  // Mbit/s, 0: no link
        const char *result, *record;
    } const rows[] = {
        {"ZX-A5", 100, 0, "1", "5:-1"},   {"ZX-A5", 1000, 0, "0", "5:0"},
        {"ZX-A5", 100, 1000, "0", "5:0"},  // one port at full speed is enough
        {"ZX-A5", 0, 0, "1", "5:-1"},     {"other", 0, 0, "0", "5:0"},  // nothing to reach
    };
    const auto port = [](int speed) {
        return speed == 0 ? Json{{"link", false}}
                          : Json{{"link", true}, {"speed", speed}, {"duplex", "full"}};
    };
    for (const Row &row : rows) {
        set("ap.apname", row.model);
        set_ports(port(row.first), port(row.second));
        EXPECT_THAT(
            output_of(
                [&] {
                    EXPECT_THAT(run(check_eth0_throughput), ElementsAre(row.result, row.record))
                        << row.model << row.first << row.second;
                },
                false),
            MatchesRegex("get_lan_port_id_by_index,[0-9]+ port index error\n"))
            << "the third port that there is none of";
    }
    EXPECT_EQ(get_lan_port_id_by_index(1), 3);
}

}  // namespace
