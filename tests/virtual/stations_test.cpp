/* Stations: lists, counters, kick-off, ARP table, identification. */
#include <vector>

#include "platform/netif.h"
#include "platform/wifi.h"
#include "tests/support/support.h"

namespace {

using test::Device;
using vap::Json;

constexpr const char *first = "02:57:00:00:00:01";
constexpr const char *second = "02:57:00:00:00:02";
constexpr const char *third = "02:57:00:00:00:03";

class Stations : public Device {
  protected:
    static void show(const char *mac, const Json &station) {
        Json change;
        change["stations"][mac] = station;
        vap::patch_hardware(change);
    }

    static std::vector<wifi_sta> on_radio(const char *interface) {
        std::vector<wifi_sta> list(WIFI_STATIONS_MAX);
        list.resize(wifi_get_client_lists(list.data(), interface, WIFI_STATIONS_MAX));
        return list;
    }

    static std::vector<std::string> macs_of_ssid(int band, const char *interface) {
        std::vector<wifi_sta> list(WIFI_STATIONS_MAX);
        list.resize(getWlClientListByIfname(band, interface, list.data()));
        std::vector<std::string> macs;
        for (const wifi_sta &station : list) {
            macs.emplace_back(station.mac);
        }
        return macs;
    }

    static int mac_list_count(const char *interface) {
        std::vector<char> list(WIFI_MAC_LIST_SIZE);
        int count = -1;
        EXPECT_EQ(wifi_get_wl_mac_list(interface, list.data(), &count), 0);
        return count;
    }

    /** The ARP table as "mac ip" texts. */
    static std::vector<std::string> arp(int size = 17442) {
        std::vector<uint8_t> buffer(size);
        int count = -1;
        EXPECT_EQ(get_arp_ipmaclists(buffer.data(), size, &count), 0);
        std::vector<std::string> lines;
        for (int i = 0; i < count; i++) {
            const uint8_t *e = &buffer[10 * i];
            char line[48];
            snprintf(line, sizeof line, "%02x:%02x:%02x:%02x:%02x:%02x %u.%u.%u.%u", e[0], e[1],
                     e[2], e[3], e[4], e[5], e[6], e[7], e[8], e[9]);
            lines.emplace_back(line);
        }
        return lines;
    }
};

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Stations, StandInTheListsOfTheirRadioAndTheirSsidAlone) {
    show(first, {{"band", 24}, {"ssid", 0}});
    show(second, {{"band", 24}, {"ssid", 1}});
    show(third, {{"band", 5}, {"ssid", 3}});
    EXPECT_EQ(on_radio("wlan1").size(), 2U);
    EXPECT_EQ(on_radio("wlan0").size(), 1U);
    EXPECT_THAT(macs_of_ssid(24, "wlan1"), ElementsAre(first));
    EXPECT_THAT(macs_of_ssid(24, "wlan1-va1"), ElementsAre(second));
    EXPECT_THAT(macs_of_ssid(5, "wlan0-va3"), ElementsAre(third));
    EXPECT_THAT(macs_of_ssid(5, "wlan1"), IsEmpty()) << "an interface of the other radio";
    EXPECT_EQ(mac_list_count("wlan1"), 2);

    vap::patch_hardware({{"stations", {{first, nullptr}}}});
    EXPECT_EQ(on_radio("wlan1").size(), 1U);
}

TEST_F(Stations, RecordHoldsWhatTheDescriptionSays) {
    show("02:57:00:00:AB:CD", {{"band", 5},
                               {"ssid", 1},
                               {"ip", "192.168.188.20"},
                               {"signal", -61},
                               {"since", -90},
                               {"down", {{"bytes", 7000}}},
                               {"up", {{"bytes", 300}}}});
    vap::advance(10.5);
    const wifi_sta record = on_radio("wlan0").at(0);
    EXPECT_STREQ(record.ifname, "wlan0-va1");
    EXPECT_STREQ(record.mac, "02:57:00:00:ab:cd");
    EXPECT_STREQ(record.ip, "192.168.188.20");
    EXPECT_STREQ(record.online_time, "100");
    EXPECT_STREQ(record.signal, "-61");
    EXPECT_EQ(record.down_bytes, 7000U);
    EXPECT_EQ(record.up_bytes, 300U);
}

TEST_F(Stations, CountersMoveWithTheClockAndWrapAt32Bits) {
    show(first, {{"down", {{"bytes", 0xffffff00U}, {"rate", 100}}}, {"up", {{"rate", 1280}}}});
    vap::advance(2.5);
    EXPECT_EQ(on_radio("wlan1").at(0).down_bytes, 0xffffff00U + 250);
    vap::advance(7.5);
    EXPECT_EQ(on_radio("wlan1").at(0).down_bytes, 1000U - 256);
    EXPECT_EQ(on_radio("wlan1").at(0).up_bytes, 12800U);
}

TEST_F(Stations, ANewRateBendsTheCountAndANewStartBeginsIt) {
    const auto up_bytes = [] { return on_radio("wlan1").at(0).up_bytes; };
    show(first, {{"up", {{"bytes", 5}, {"rate", 100}}}});
    vap::advance(10);
    show(first, {{"up", {{"rate", 1}}}});
    EXPECT_EQ(up_bytes(), 1005U);
    vap::advance(10);
    EXPECT_EQ(up_bytes(), 1015U);
    show(first, {{"up", {{"bytes", 0}}}});
    vap::advance(10);
    EXPECT_EQ(up_bytes(), 10U);
}

TEST_F(Stations, AssociateWhenTheyAreFirstSeenOrAtTheTimeGiven) {
    vap::advance(50);
    show(first, {{"band", 24}});
    show(second, {{"band", 5}, {"since", 60}});
    EXPECT_STREQ(on_radio("wlan1").at(0).online_time, "0");
    EXPECT_THAT(on_radio("wlan0"), IsEmpty()) << "it comes at 60 s";
    vap::advance(10);
    EXPECT_STREQ(on_radio("wlan1").at(0).online_time, "10");
    EXPECT_STREQ(on_radio("wlan0").at(0).online_time, "0");
    // A change of something else is no new association.
    show(first, {{"signal", -70}});
    EXPECT_STREQ(on_radio("wlan1").at(0).online_time, "10");
    EXPECT_STREQ(on_radio("wlan1").at(0).signal, "-70");
}

TEST_F(Stations, MoreThanAListHoldsAreCountedAndNotWritten) {
    Json change;
    for (int i = 0; i < 130; i++) {
        char mac[18];
        snprintf(mac, sizeof mac, "02:57:00:00:01:%02x", i);
        change["stations"][mac] = {{"band", 24}, {"ip", "10.0.0." + std::to_string(i)}};
    }
    vap::patch_hardware(change);
    std::vector<wifi_sta> list(WIFI_STATIONS_MAX);  // the sanitizer watches its end
    EXPECT_EQ(wifi_get_client_lists(list.data(), "wlan1", WIFI_STATIONS_MAX), 130);
    EXPECT_STREQ(list.back().mac, "02:57:00:00:01:7f");
    EXPECT_EQ(getWlClientListByIfname(24, "wlan1", list.data()), 130);
    EXPECT_EQ(mac_list_count("wlan1"), 130);
    EXPECT_EQ(arp().size(), 130U);
    EXPECT_EQ(arp(1299).size(), 129U) << "only whole entries";
    std::vector<wifi_sta> few(2);
    EXPECT_EQ(wifi_get_client_lists(few.data(), "wlan1", 2), 130);
}

TEST_F(Stations, KickOffTakesAStationOffEveryListUntilItIsAdmitted) {
    show(first, {{"ssid", 2}, {"ip", "10.0.0.1"}, {"since", -500}, {"up", {{"bytes", 9000}}}});
    show(second, {{"ssid", 2}, {"ip", "10.0.0.2"}});
    vap::clear_journal();
    ASSERT_EQ(sta_kickoff("02:57:00:00:00:01;1", 2, 0), 0);
    EXPECT_THAT(macs_of_ssid(24, "wlan1-va2"), ElementsAre(second));
    EXPECT_EQ(on_radio("wlan1").size(), 1U);
    EXPECT_EQ(mac_list_count("wlan1"), 1);
    EXPECT_THAT(arp(), ElementsAre("02:57:00:00:00:02 10.0.0.2"));
    EXPECT_EQ(sta_kickoff("02:57:00:00:00:01;1", 2, 0), -1) << "it is off already";

    // A change of the description lets nobody in.
    show(first, {{"signal", -70}});
    EXPECT_EQ(on_radio("wlan1").size(), 1U);

    vap::advance(5);
    ASSERT_EQ(sta_link_enable("02:57:00:00:00:01;1", 2, 0), 0);
    const wifi_sta back = on_radio("wlan1").at(0);
    EXPECT_STREQ(back.mac, first);
    EXPECT_STREQ(back.online_time, "0") << "a new association";
    EXPECT_EQ(back.up_bytes, 0U);
    EXPECT_THAT(effects(), ElementsAre("sta_kickoff 02:57:00:00:00:01;1 2 0",
                                       "sta_kickoff 02:57:00:00:00:01;1 2 0",
                                       "sta_link_enable 02:57:00:00:00:01;1 2 0"));
}

TEST_F(Stations, KickOffRefusesWhatItCannotFind) {
    show(first, {{"ssid", 2}});
    show(second, {{"ssid", 2}, {"since", 60}});
    struct Row {
        const char *why, *text;
        int ssid, radio;
    };
    for (const Row &row :
         {Row{"another SSID", "02:57:00:00:00:01;1", 1, 0},
          Row{"another radio", "02:57:00:00:00:01;1", 2, 1},
          Row{"not there yet", "02:57:00:00:00:02;1", 2, 0},
          Row{"no such radio", "02:57:00:00:00:01;1", 2, 7},
          Row{"an unknown station", "02:57:00:00:00:09;1", 2, 0},
          Row{"no suffix", "02:57:00:00:00:01", 2, 0},
          Row{"no MAC address", "02:57:00:00:00:zz;1", 2, 0}, Row{"no text", nullptr, 2, 0}}) {
        EXPECT_EQ(sta_kickoff(row.text, row.ssid, row.radio), -1) << row.why;
        EXPECT_EQ(vap::journal().back().at("result"), -1) << row.why;
    }
    EXPECT_EQ(on_radio("wlan1").size(), 1U);
    vap::fail("sta_kickoff");
    EXPECT_EQ(sta_kickoff("02:57:00:00:00:01;1", 2, 0), -1);
    EXPECT_EQ(on_radio("wlan1").size(), 1U) << "a planned failure bars nobody";
}

TEST_F(Stations, ArpTableHasItsOwnEntriesFirst) {
    show(first, {{"ip", "10.0.0.1"}});
    show(second, {{"ip", "10.0.0.2"}, {"in_arp", false}});
    show(third, {{"ip", "10.0.0.3"}});
    vap::patch_hardware({{"arp", {{third, "10.0.0.33"}, {"02:aa:00:00:00:01", "10.0.0.200"}}}});
    EXPECT_THAT(arp(), ElementsAre("02:57:00:00:00:03 10.0.0.33", "02:aa:00:00:00:01 10.0.0.200",
                                   "02:57:00:00:00:01 10.0.0.1"));

    std::vector<wifi_sta> list = on_radio("wlan1");
    ASSERT_EQ(get_client_ip_by_mac(list.data(), static_cast<int>(list.size())), 0);
    EXPECT_STREQ(list[1].ip, "10.0.0.2") << "the driver's own address stays";
    EXPECT_STREQ(list[2].ip, "10.0.0.33");
}

TEST_F(Stations, IdentificationKnowsOnlyWhatItHasSeen) {
    show(first, {{"os", 12}});
    uint8_t mac[6];
    int index = 77;
    ASSERT_EQ(ifaddrs_ethaddr_aton(first, mac), 0);
    EXPECT_EQ(ap_client_identify_get_os_info(mac, &index), 0);
    EXPECT_EQ(index, 12);
    mac[5] = 0x99;
    EXPECT_EQ(ap_client_identify_get_os_info(mac, &index), -1);
    EXPECT_EQ(index, 12);
}

}  // namespace
