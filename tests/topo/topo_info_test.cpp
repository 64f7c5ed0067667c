#include "topo/topo_info.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include "file.h"
#include "tests/support/support.h"
#include "topo/device_table.h"
#include "topo/iwconfig.h"
#include "topo/port_rate.h"
#include "topo/server.h"
#include "topo/vlan.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using vap::Json;

class TopoInfo : public test::Device {
  protected:
    TopoInfo() {
        topo_upport = 1;
        vap::patch_hardware({{"ports", {{"1", port(0, 0)}, {"3", port(0, 0)}}}});
    }

    static Json port(uint64_t in, uint64_t out) {
        return {{"link", true},
                {"speed", 1000},
                {"in", {{"bytes", in}, {"rate", 0}}},
                {"out", {{"bytes", out}, {"rate", 0}}}};
    }

    static void vlans(const std::vector<std::pair<std::string, std::string>> &values) {
        vap::config_set("wl.0.vlan.enable", "1");
        for (const auto &[key, value] : values) {
            vap::config_set(key, value);
        }
    }

    Json report() { return answer(topo_info)["dev_topo"]; }
};

constexpr const char *whole_report =
    R"({"dev_info":{"up_port":2,"link_rate":1000,"total_vlan":"1 10 20"},"port_info":{)"
    R"("1":{"link_rate":1000,"tx_rate":160,"rx_rate":80,"vlan_id":"1 10 20","port":1,)"
    R"("neighbour_devs":{"02:00:00:00:00:01":{"mac":"02:00:00:00:00:01","ip":"192.168.100.121",)"
    R"("type":"gateway","sn":"NXT00000000000000000002","project_id":1234567},)"
    R"("b":{"mac":"b","ip":"192.0.2.22","type":"switch","sn":"S2","project_id":0}},)"
    R"("unknown_devs":{}},)"
    R"("2":{"link_rate":1000,"tx_rate":4000,"rx_rate":2516582400,"vlan_id":"20","port":2,)"
    R"("neighbour_devs":{"d":{"mac":"d","ip":"1.1.1.1","type":"ap","sn":"S4","project_id":1}},)"
    R"("unknown_devs":{}},)"
    R"("255":{"link_rate":1000,"tx_rate":1000,"rx_rate":1000,"port":255,)"
    R"("neighbour_devs":{"c":{"mac":"c","ip":"1.1.1.1","type":"ap","sn":"S3","project_id":1}},)"
    R"("unknown_devs":{}}}})";

TEST_F(TopoInfo, ShowsUpLinkPortsAndNeighbours) {
    topo_upport = 3;
    vlans({{"qvlan.pvid", "1"}, {"lan.0.vlanid", "10"}, {"lan.1.vlanid", "20"}});
    set("qvlan.truck.port", "1,0");
    write_file(
        "/tmp/file_topo",
        "mac=02:00:00:00:00:01~ip=192.168.100.121~type=gateway~port=1~sn=NXT00000000000000000002~"
        "project_id=1234567~is_neigh=1~is_active=0~\n"
        "mac=b~ip=192.0.2.22~type=switch~port=1~sn=S2~project_id=none~is_neigh=1~is_active=1~\n"
        "mac=c~ip=1.1.1.1~type=ap~port=255~sn=S3~project_id=1~is_neigh=1~is_active=1~\n"
        "mac=d~ip=1.1.1.1~type=ap~port=3~sn=S4~project_id=1~is_neigh=1~is_active=1~\n"
        "mac=e~ip=1.1.1.1~type=ap~port=1~sn=S5~project_id=1~is_neigh=0~is_active=1~\n");
    call(topo_info);
    vap::advance(100);
    vap::patch_hardware(
        {{"ports", {{"1", port(1'024'000, 2'048'000)}, {"3", port(322'122'547'200, 512'000)}}}});
    // The second port's bytes of these 100 seconds show as those of one: the first
    // port's question came a moment earlier.
    Json shown;
    EXPECT_EQ(output_of([&] { shown = report(); }, false), "ifname:wlan1, link_rate:1000\n");
    EXPECT_EQ(shown.dump(), whole_report);
    EXPECT_THAT(effects({"sendto"}), ::testing::SizeIs(2)) << "a marker packet each time";
}

TEST_F(TopoInfo, KnowsTheUpLink) {
    for (const auto &[speed, link_rate] : {std::pair(1000, 1000), {100, 100}, {10, 100}}) {
        vap::patch_hardware({{"ports", {{"1", {{"speed", speed}}}}}});
        EXPECT_EQ(report()["dev_info"]["link_rate"], link_rate) << speed;
    }
    vap::patch_hardware({{"ports", {{"1", {{"link", false}}}}}});
    for (const int other : {1, 7, 255}) {  // no link; no such port; the wireless side
        topo_upport = other;
        EXPECT_EQ(report()["dev_info"]["up_port"], other);
        EXPECT_EQ(report()["dev_info"]["link_rate"], 0) << other;
    }
}

TEST_F(TopoInfo, ShowsTheLinkOfEachPort) {
    vap::patch_hardware({{"ports", {{"1", {{"link", false}}}, {"3", {{"speed", 100}}}}}});
    const Json ports = report()["port_info"];
    EXPECT_EQ(ports["1"]["link_rate"], 0);
    EXPECT_EQ(ports["2"]["link_rate"], 1000) << "whatever its speed";
    vap::patch_hardware({{"ports", {{"1", {{"link", true}}}, {"3", {{"link", false}}}}}});
    EXPECT_EQ(report()["port_info"]["255"].dump(),
              R"({"link_rate":0,"tx_rate":0,"rx_rate":0,"port":255,"neighbour_devs":{},)"
              R"("unknown_devs":{}})")
        << "as the last wired port";
}

TEST_F(TopoInfo, AsksForAnUpLinkThatIsNotKnown) {
    topo_upport = 224;
    vap::patch_hardware({{"topology", {{"port", 255}, {"if_name", "wlan0-vxd"}}}});
    EXPECT_EQ(report()["dev_info"]["up_port"], 255);
    effects();
    report();
    EXPECT_THAT(effects({"holymsg_publish_and_respond"}), IsEmpty()) << "now it is known";
    EXPECT_EQ(topo_upport, 255);
}

TEST_F(TopoInfo, ReadsNeighboursAsFarAsTheyAreWhole) {
    const std::string whole = "mac=a~ip=1.2.3.4~type=ap~port=1~sn=S~project_id=1~is_neigh=1~";
    const struct {
        const char *why;
        std::string text;
        bool kept;
    } rows[] = {
        {"no line end, nothing behind the flag that counts", whole, true},
        {"overlong line", whole + "is_active=" + std::string(400, 'x'), true},
        {"no serial number", "mac=a~ip=1~type=ap~port=1~sn=~project_id=1~is_neigh=1~\n", false},
        {"too long a type", "mac=a~ip=1~type=12345678~port=1~sn=S~project_id=1~is_neigh=1~", false},
        {"other neighbourhood", "mac=a~ip=1~type=ap~port=1~sn=S~project_id=1~is_neigh=2~", false},
        {"fields in another order", "mac=a~type=ap~ip=1~port=1~sn=S~project_id=1~is_neigh=1~",
         false},
        {"what a line lacks is not taken from the one before",
         "mac=b" + whole.substr(5) + "\nmac=a~ip=1~", false},
        {"empty file", "", false},
    };
    for (const auto &row : rows) {
        write_file("/tmp/file_topo", row.text);
        EXPECT_EQ(report()["port_info"]["1"]["neighbour_devs"].contains("a"), row.kept) << row.why;
    }
    std::filesystem::remove(vap::folder() / "root/tmp/file_topo");
    EXPECT_THAT(report()["port_info"]["1"]["neighbour_devs"], IsEmpty());
}

TEST_F(TopoInfo, ShowsTheVlansOfEachPort) {
    vlans({{"qvlan.pvid", "1"}, {"lan.0.vlanid", "10"}, {"lan.1.vlanid", "20"}});
    for (const auto &[flags, first, second] :
         {std::array{"0 1", "10", "1 10 20"}, {"1", "1 10 20", "20"}}) {  // what is missing is 0
        set("qvlan.truck.port", flags);
        const Json ports = report()["port_info"];
        EXPECT_EQ(ports["1"]["vlan_id"], first) << flags;
        EXPECT_EQ(ports["2"]["vlan_id"], second) << flags;
    }
    set("wl.0.vlan.enable", "0");
    set("qvlan.truck.port", "1,0");
    EXPECT_EQ(report()["dev_info"]["total_vlan"], "");
    EXPECT_EQ(report()["port_info"]["1"]["vlan_id"], "");
    EXPECT_EQ(report()["port_info"]["2"]["vlan_id"], "20") << "as stored";
}

TEST_F(TopoInfo, ListsEachVlanOnce) {
    const auto text = [] {
        VlanText list;
        EXPECT_EQ(get_trunk_vlan_id(list), 0);
        return std::string(list.text);
    };
    vlans({});
    EXPECT_EQ(text(), "");
    vlans({{"qvlan.pvid", "20"},
           {"manage.vlanid", "10"},
           {"lan.0.vlanid", "20"},
           {"lan.1.vlanid", "0"},
           {"wlan1.7_bss_enable", "1"},
           {"wlan1.7_bss_vlanid", "30"},
           {"wlan0.3_bss_enable", "1"},
           {"wlan0.3_bss_vlanid", "7"},
           {"wlan0.2_bss_enable", "2"},
           {"wlan0.2_bss_vlanid", "8"},  // only 1 switches on
           {"wlan0.4_bss_enable", "1"},
           {"wlan0.4_bss_vlanid", "9"}});  // no such SSID
    EXPECT_EQ(text(), "7 10 20 30");
    vlans({{"lan.0.vlanid", "2147483647"}, {"manage.vlanid", "-2147483648"}});
    EXPECT_EQ(text(), "-2147483648 7 20 30 2147483647");
}

TEST_F(TopoInfo, MeasuresPortRates) {
    PortRate rate;
    get_port_rate(0, rate);
    get_port_rate(1, rate);
    const struct {
        const char *why;
        double seconds;
        int index;
        uint64_t in, out, rx, tx;
    } rows[] = {
        {"averaged over the interval", 10, 0, 102'400, 1'024'000, 80, 800},
        {"below a kibibyte a second", 10, 0, 102'400 + 10'239, 1'024'000, 0, 0},
        {"averaged over few seconds, too", 2, 0, 102'400 + 20'480, 1'024'000, 40, 0},
        {"less than a second after the other port", 0, 1, 2'048, 1'024, 16, 8},
        {"64-bit counters", 10, 0, 6'000'000'000, 1ULL << 45, 4'687'400, 27'487'789'888},
        {"and further on", 10, 0, 6'000'102'400, (1ULL << 45) + 20'480, 80, 16},
        {"a counter that began again counts from 0", 10, 0, 20'480, 10'240, 16, 8},
    };
    for (const auto &row : rows) {
        vap::advance(row.seconds);
        vap::patch_hardware({{"ports", {{row.index == 0 ? "1" : "3", port(row.in, row.out)}}}});
        EXPECT_EQ(get_port_rate(row.index, rate), 0) << row.why;
        EXPECT_EQ(rate.rx, row.rx) << row.why;
        EXPECT_EQ(rate.tx, row.tx) << row.why;
    }
}

TEST_F(TopoInfo, SelectsAPortWithTheNulOfItsName) {
    PortRate rate;
    const Fd counters(open("/proc/rtl865x/asicCounter", O_WRONLY | O_CLOEXEC));
    vap::fail("fopen");  // so that nothing takes in what was written
    EXPECT_EQ(get_port_rate(1, rate), -1);
    int written = 0;
    EXPECT_EQ(ioctl(counters.get(), FIONREAD, &written), 0);
    EXPECT_EQ(written, 7);
}

TEST_F(TopoInfo, ReadsCountersFromAnyText) {
    write_file("/tmp/file_topo",
               "ifInOctets 1\n"
               " ifOutOctets 2\n"  // does not begin with the name
               "ifInUcastPkts: count=12, rate=13\n"
               "ifOutUcastPkts none\n"
               "ifInOctets            : 18446744073709551615 octets\n" +
                   std::string(3000, 'x'));
    PortCounters counters;
    counters.out_octets = 77;
    EXPECT_EQ(serch_if_statistic_by_file_topo("/tmp/file_topo", counters), 0);
    EXPECT_EQ(counters.in_octets, 18446744073709551615U);
    EXPECT_EQ(counters.out_octets, 77U);
    EXPECT_EQ(counters.in_unicast, 12U);
    EXPECT_EQ(counters.out_unicast, 0U);
    EXPECT_EQ(serch_if_statistic_by_file_topo("/tmp/wirestation", counters), -1);
}

TEST_F(TopoInfo, ShowsNoRatesWithoutCounters) {
    PortRate rate{1, 2};
    vap::fail("open", 1, 1);
    EXPECT_EQ(get_port_rate(0, rate), -1);
    vap::fail("fopen", 1, 1);
    EXPECT_EQ(get_port_rate(0, rate), -1);
    EXPECT_EQ(rate.tx, 1);
}

TEST_F(TopoInfo, ReadsTheBitRateOfAnInterface) {
    vap::patch_hardware({{"radios", {{"5", {{"bit_rate", 866.7}}}}}});
    int rate = -1;
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan0", &rate), 0);
    EXPECT_EQ(rate, 110'937);
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan7", &rate), 0);
    EXPECT_EQ(rate, 0) << "the tool knows no such interface";
    EXPECT_THAT(effects({"popen"}), ElementsAre("popen iwconfig wlan0 | grep \"Bit Rate\" re",
                                                "popen iwconfig wlan7 | grep \"Bit Rate\" re"));
    EXPECT_THAT(
        output_of([&] { EXPECT_EQ(iwconfig_get_ifname_rate("wlan1|x", &rate), -1); }, false),
        MatchesRegex("IN iwconfig_get_ifname_rate on [0-9]+ cmd check error\n"));
    vap::fail("popen");
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan1", &rate), -1);
    EXPECT_EQ(rate, 0);
}

TEST_F(TopoInfo, DelaysTheSavingOfTheDeviceTableOnce) {
    vap::fail("db_table_init");
    EXPECT_EQ(alldevs_open(), nullptr);
    effects();
    void *table = alldevs_open();
    EXPECT_NE(table, nullptr);
    EXPECT_EQ(alldevs_open(), table);
    const std::string opened =
        R"(db_table_init default alldevs [{"name":"mac","kind":"text","width":32,"key":true},)"
        R"({"name":"ip","kind":"text","width":32,"key":false},)"
        R"({"name":"type","kind":"text","width":64,"key":false},)"
        R"({"name":"port","kind":"integer","width":0,"key":false},)"
        R"({"name":"sn","kind":"text","width":64,"key":false},)"
        R"({"name":"project_id","kind":"text","width":64,"key":false},)"
        R"({"name":"is_neigh","kind":"integer","width":0,"key":false},)"
        R"({"name":"is_active","kind":"integer","width":0,"key":false}])";
    EXPECT_THAT(effects(),
                ElementsAre(opened, "db_table_set_delay_sync_memdb default.alldevs 1", opened));
}

}  // namespace
