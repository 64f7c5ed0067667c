/* Interfaces, address texts and switch ports. */
#include "platform/netif.h"

#include "platform/wifi.h"
#include "tests/support/support.h"
#include "virtual/device/device.h"

namespace {

using test::Device;
using vap::Json;

class Netif : public Device {};

TEST_F(Netif, CountersMoveWithTheClock) {
    vap::patch_hardware(
        {{"interfaces",
          {{"eth0",
            {{"rx", {{"bytes", 0xffffffffULL}, {"rate", 1000}, {"packets", 4}, {"errors", 2}}},
             {"tx", {{"bytes", 10}, {"rate", 0.5}}}}}}}});
    vap::advance(3);
    if_stats stats{};
    ASSERT_EQ(sys_get_if_statistics("eth0", &stats), 0);
    EXPECT_EQ(stats.rx_bytes, 0xffffffffULL + 3000) << "64 bits wide";
    EXPECT_EQ(stats.rx_packets, 7U);
    EXPECT_EQ(stats.rx_errors, 2U);
    EXPECT_EQ(stats.tx_bytes, 12U);
    stats.rx_bytes = 1;
    EXPECT_EQ(sys_get_if_statistics("eth7", &stats), -1);
    EXPECT_EQ(stats.rx_bytes, 1U);
}

TEST_F(Netif, EveryInterfaceOfANewDeviceCanBeAsked) {
    const auto asked = [](const char *name) {
        if_stats stats{};
        uint8_t mac[6];
        return *name != '\0' && sys_get_if_statistics(name, &stats) == 0 &&
               ifaddrs_get_if_netmac(name, mac) == 0;
    };
    EXPECT_TRUE(asked(ifaddrs_get_lan_ifname()));
    for (const int index : {6, 10, 23, 27}) {
        EXPECT_TRUE(asked(get_eth_name(index))) << index;
    }
    for (const auto &[band, slots] : {std::pair(24, 8), std::pair(5, 4)}) {
        for (int slot = 0; slot < slots; slot++) {
            for (const char *mode : {"ap", "apclient"}) {
                char name[WIFI_IFNAME_MAX] = "";
                ASSERT_EQ(get_wifi_ifname(band, mode, slot, name), 0);
                EXPECT_TRUE(asked(name)) << name;
            }
        }
    }
    char ip[16] = "";
    EXPECT_EQ(ifaddrs_get_ifip("br0", ip), 0);
    EXPECT_STREQ(ip, get("lan.ip").c_str()) << "as configured";
    EXPECT_EQ(ifaddrs_get_ifip("eth1", ip), -1) << "it has none";
}

TEST_F(Netif, MacTexts) {
    struct Row {
        const char *text;
        bool valid;
        const char *why;
    };
    for (const Row &row : {Row{"0a:1B:2c:3D:4e:5F", true, "either case"},
                           Row{"0a-1b-2c-3d-4e-5f", false, "another separator"},
                           Row{"0a:1b:2c:3d:4e", false, "five groups"},
                           Row{"0a:1b:2c:3d:4e:5f:60", false, "seven groups"},
                           Row{"a:1b:2c:3d:4e:5f0", false, "uneven groups"},
                           Row{"0a:1b:2c:3d:4e:5g", false, "no digit"},
                           Row{" a:1b:2c:3d:4e:5f", false, "a blank that number readers skip"},
                           Row{"", false, "empty"}, Row{nullptr, false, "no text"}}) {
        uint8_t mac[6] = {0xee, 0xee, 0xee, 0xee, 0xee, 0xee};
        EXPECT_EQ(ifaddrs_ethaddr_aton(row.text, mac), row.valid ? 0 : -1) << row.why;
        EXPECT_EQ(mac[0], row.valid ? 0x0a : 0xee) << row.why;
        EXPECT_EQ(mac[5], row.valid ? 0x5f : 0xee) << row.why;
    }
    char text[] = "0a:1B:xY;1";
    string_upper_mac(text, text);
    EXPECT_STREQ(text, "0A:1B:XY;1");
    string_lower_mac(text, text);
    EXPECT_STREQ(text, "0a:1b:xy;1");
}

TEST_F(Netif, PortsShowWhatWasNegotiated) {
    struct Row {
        const char *why;
        Json port;
        int link, result, speed, duplex;
    };
    const Row rows[] = {
        {"gigabit", {{"link", true}, {"speed", 1000}, {"duplex", "full"}}, 1, 0, 2, 0},
        {"old hub", {{"link", true}, {"speed", 10}, {"duplex", "half"}}, 1, 0, 0, 1},
        {"no link", {{"link", false}, {"speed", 1000}, {"duplex", "full"}}, 0, -1, 77, 77},
        {"codes", {{"link", true}, {"speed_code", 9}, {"duplex_code", 5}}, 1, 0, 9, 5},
        {"odd speed", {{"link", true}, {"speed", 12}, {"duplex", "full"}}, 1, -1, 77, 77},
    };
    for (const Row &row : rows) {
        vap::patch_hardware({{"ports", {{"3", nullptr}}}});
        vap::patch_hardware({{"ports", {{"3", row.port}}}});
        int speed = 77;
        int duplex = 77;
        EXPECT_EQ(hal_get_port_link_status(3), row.link) << row.why;
        EXPECT_EQ(hal_get_eth_status(3, &speed, &duplex), row.result) << row.why;
        EXPECT_EQ(speed, row.speed) << row.why;
        EXPECT_EQ(duplex, row.duplex) << row.why;
    }
    EXPECT_EQ(hal_get_port_link_status(0), 0) << "the switch has no such port";
}

TEST_F(Netif, SwitchCountersMoveAndTheSmallOnesWrap) {
    vap::patch_hardware(
        {{"ports",
          {{"1",
            {{"in", {{"bytes", 5'000'000'000}, {"rate", 2000}, {"packets", 0xffffffffU}}},
             {"out", {{"bytes", 7}, {"rate", 0}, {"multicast", 8}, {"broadcast", 9}}}}}}}});
    vap::advance(2);
    std::map<std::string, std::string> counters;
    std::istringstream text(vap::asic_counter_text(1));
    for (std::string line; std::getline(text, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name >> counters[name];
    }
    EXPECT_EQ(counters["ifInOctets"], "5000004000");
    EXPECT_EQ(counters["ifInUcastPkts"], "3");
    EXPECT_EQ(counters["etherStatsMcastPkts"], "0");
    EXPECT_EQ(counters["etherStatsBcastPkts"], "0");
    EXPECT_EQ(counters["ifOutOctets"], "7");
    EXPECT_EQ(counters["ifOutUcastPkts"], "0");
    EXPECT_EQ(counters["ifOutMulticastPkts"], "8");
    EXPECT_EQ(counters["ifOutBrocastPkts"], "9");
    EXPECT_EQ(vap::asic_counter_text(2), "");
}

}  // namespace
