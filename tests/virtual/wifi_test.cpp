/* Radios: state, names, scan, BSSIDs, and the files that the driver shows. */
#include "platform/wifi.h"
#include "platform/apmib.h"
#include "tests/support/support.h"

namespace {

using test::Device;
using vap::Json;

class Radio : public Device {
  protected:
    static std::string interface(int band, const char *mode, int index) {
        char name[WIFI_IFNAME_MAX] = "-";
        get_wifi_ifname(band, mode, index, name);
        return name;
    }

    /** Standard output of a shell command of the agent. */
    static std::string output(const char *command) {
        std::string text;
        FILE *pipe = popen(command, "r");
        for (int c = 0; pipe != nullptr && (c = fgetc(pipe)) != EOF;) {
            text += static_cast<char>(c);
        }
        if (pipe != nullptr) {
            pclose(pipe);
        }
        return text;
    }
};

TEST_F(Radio, StatusFollowsTheDescription) {
    wifi_radio_status status{};
    vap::patch_hardware({{"radios",
                          {{"24", {{"channel", 11}, {"bandwidth", 40}}},
                           {"5", {{"upstream", "02:aa:bb:00:00:01"}, {"channel", "149"}}}}}});
    ASSERT_EQ(wifi_get_status_list(24, 0, &status), 0);
    EXPECT_STREQ(status.channel, "11");
    EXPECT_STREQ(status.bandwidth, "40");
    ASSERT_EQ(wifi_get_status_list(5, 1, &status), 0);
    EXPECT_STREQ(status.channel, "149");
    EXPECT_STREQ(status.bssid, "02:aa:bb:00:00:01");
    EXPECT_EQ(wifi_get_status_list(6, 0, &status), -1);
    EXPECT_STREQ(status.channel, "149") << "untouched by the failure";
}

TEST_F(Radio, EachSsidHasAnInterface) {
    struct Row {
        int band;
        const char *mode;
        int index;
        const char *name;
    };
    for (const Row &row :
         {Row{24, "ap", 0, "wlan1"}, Row{24, "ap", 7, "wlan1-va7"}, Row{5, "ap", 0, "wlan0"},
          Row{5, "ap", 3, "wlan0-va3"}, Row{24, "apclient", 0, "wlan1-vxd"},
          Row{5, "apclient", 1, "wlan0-va1"}, Row{24, nullptr, 0, "wlan1"},
          Row{24, "ap", 8, "-"},  // one past the last slot of each radio
          Row{5, "ap", 4, "-"}, Row{24, "ap", -1, "-"}, Row{0, "ap", 0, "-"}}) {
        EXPECT_EQ(interface(row.band, row.mode, row.index), row.name)
            << row.band << " " << row.index;
    }
    EXPECT_STREQ(get_eth_name(ETH_NAME_RADIO_2G), "wlan1");
    EXPECT_STREQ(get_eth_name(ETH_NAME_RADIO_5G), "wlan0");
    EXPECT_STREQ(get_eth_name(7), "");
    const char *before = get_eth_name(ETH_NAME_RADIO_2G);
    vap::patch_hardware({{"names", {{"radio_2g", "ra0"}}}});
    EXPECT_STREQ(before, "wlan1") << "a text that was handed out stays";
    EXPECT_STREQ(get_eth_name(ETH_NAME_RADIO_2G), "ra0");
    EXPECT_EQ(interface(24, "ap", 2), "ra0-va2");
}

TEST_F(Radio, ScanFillsWhatFits) {
    vap::patch_hardware({{"scan",
                          {{"24", Json::array({{{"ssid", "Harbour"},
                                                {"bssid", "02:1c:00:00:00:01"},
                                                {"channel", 6},
                                                {"signal", -40},
                                                {"bandwidth", 20}},
                                               {{"ssid", ""}, {"bssid", "02:1c:00:00:00:02"}},
                                               {{"ssid", std::string(40, 'x')}}})}}}});
    std::vector<wifi_scan_result> results(3);
    int count = 0;
    ASSERT_EQ(wifi_do_scan("wlan1", &count, results.data(), 3), 0);
    ASSERT_EQ(count, 3);
    EXPECT_STREQ(results[0].ssid, "Harbour");
    EXPECT_STREQ(results[0].channel, "6");
    EXPECT_STREQ(results[0].signal, "-40");
    EXPECT_STREQ(results[1].ssid, "");
    EXPECT_EQ(std::string(results[2].ssid), std::string(32, 'x'));
    ASSERT_EQ(wifi_do_scan("wlan1", &count, results.data(), 1), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(wifi_do_scan("br0", &count, results.data(), 3), -1);
    EXPECT_EQ(vap::journal().back().at("op"), "wifi_do_scan") << "a refusal is journalled";
}

TEST_F(Radio, ARadioThatIsNotThereRefuses) {
    vap::patch_hardware({{"radios", {{"5", nullptr}}}});
    wifi_radio_status status{};
    wifi_sta station{};
    EXPECT_EQ(wifi_get_status_list(5, 0, &status), -1);
    EXPECT_EQ(interface(5, "ap", 0), "-");
    EXPECT_EQ(wifi_get_client_lists(&station, "wlan0", 1), 0);
    EXPECT_EQ(interface(24, "ap", 0), "wlan1");
}

TEST_F(Radio, BssidsStandBehindTheirIdentifiers) {
    Json bssids = Json::array();
    for (int slot = 0; slot < 8; slot++) {
        bssids.push_back("02:00:00:00:00:0" + std::to_string(slot));
    }
    vap::patch_hardware({{"bssids", bssids}});
    const std::pair<int, int> slots[] = {{203, 0}, {303, 1}, {304, 2}, {305, 3},
                                         {306, 4}, {511, 5}, {512, 6}, {513, 7}};
    for (const auto &[id, slot] : slots) {
        uint8_t mac[6] = {};
        EXPECT_EQ(apmib_get(id, mac), 1) << id;
        EXPECT_EQ(mac[5], slot) << id;
    }
    for (const int id : {0, 202, 204, 302, 307, 510, 514}) {
        uint8_t mac[6] = {0xee};
        EXPECT_EQ(apmib_get(id, mac), 0) << id;
        EXPECT_EQ(mac[0], 0xee) << id;
    }
}

TEST_F(Radio, ChannelUseIsReadThroughTheShell) {
    const char *command =
        "cat /proc/wlan1/ch_util | grep -w 'Channel:6' | awk '{print $4}' | awk -F : '{print $2}'";
    vap::patch_hardware({{"radios", {{"24", {{"channel_use", {{"6", 61}, {"60", 3}}}}}}}});
    EXPECT_EQ(output(command), "61\n");
    vap::patch_hardware({{"radios", {{"24", {{"channel_use", {{"6", 60}}}}}}}});
    EXPECT_EQ(output(command), "60\n");
}

TEST_F(Radio, BitRateIsReadThroughTheShell) {
    vap::patch_hardware({{"radios", {{"5", {{"bit_rate", 866.7}}}}}});
    float rate = 0;
    const std::string line = output("iwconfig wlan0-va1 | grep \"Bit Rate\"");
    EXPECT_EQ(sscanf(line.c_str(), "%*s %*s %*s %*s %*[^=]=%f%*s", &rate), 1) << line;
    EXPECT_FLOAT_EQ(rate, 866.7F);
    EXPECT_EQ(output("iwconfig eth9 | grep \"Bit Rate\""), "");
}

TEST_F(Radio, PingAnswersWhatTheDescriptionSays) {
    vap::patch_hardware({{"ping",
                          {{"192.168.188.1", {{"replies", {10.5, 20, nullptr}}}},
                           {"cloud.example", {{"address", "192.0.2.7"}, {"replies", {49.9}}}},
                           {"gone.example", {{"unknown", true}}},
                           {"dead.example", Json::object()},
                           {"*", {{"replies", {1}}}}}}});
    struct Row {
        const char *command, *holds;
        int replies;
    };
    for (const Row &row :
         {Row{"ping 192.168.188.1 -4 -c 5 -s 32 -W 3 2>&1",
              "40 bytes from 192.168.188.1: seq=3 ttl=64 time=10.500 ms", 4},
          Row{"ping cloud.example -4 -c 5 -s 32 -W 3 2>&1",
              "40 bytes from 192.0.2.7: seq=0 ttl=64 time=49.900 ms", 5},
          Row{"ping gone.example -4 -c 1 -s 32 -W 3 2>&1", "bad address", 0},
          Row{"ping dead.example -4 -c 2 -s 32 -W 3 2>&1", "2 packets transmitted, 0 packets", 0},
          Row{"ping 10.9.8.7 -4 -c 1 -s 32 -W 3 2>&1", "from 10.9.8.7:", 1}}) {
        const std::string text = output(row.command);
        EXPECT_THAT(text, testing::HasSubstr(row.holds));
        int replies = 0;
        for (size_t at = 0; (at = text.find("ttl", at)) != text.npos; at++) {
            replies++;
        }
        EXPECT_EQ(replies, row.replies) << text;
    }
}

}  // namespace
