#include "topo/topo_info.h"

#include <sstream>

#include "tests/support/support.h"
#include "topo/device_table.h"
#include "topo/iwconfig.h"
#include "topo/port_rate.h"
#include "topo/server.h"
#include "topo/vlan.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
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

constexpr const char *whole_report = R"({
	"dev_topo":	{
		"dev_info":	{
			"up_port":	2,
			"link_rate":	1000,
			"total_vlan":	"1 10 20"
		},
		"port_info":	{
			"1":	{
				"link_rate":	1000,
				"tx_rate":	160,
				"rx_rate":	80,
				"vlan_id":	"1 10 20",
				"port":	1,
				"neighbour_devs":	{
					"02:00:00:00:00:01":	{
						"mac":	"02:00:00:00:00:01",
						"ip":	"192.0.2.21",
						"type":	"ap",
						"sn":	"NXT0000000002",
						"project_id":	4711
					},
					"02:00:00:00:00:02":	{
						"mac":	"02:00:00:00:00:02",
						"ip":	"192.0.2.22",
						"type":	"switch",
						"sn":	"S2",
						"project_id":	0
					}
				},
				"unknown_devs":	{
				}
			},
			"2":	{
				"link_rate":	1000,
				"tx_rate":	4000,
				"rx_rate":	8,
				"vlan_id":	"20",
				"port":	2,
				"neighbour_devs":	{
				},
				"unknown_devs":	{
				}
			},
			"255":	{
				"link_rate":	1000,
				"tx_rate":	1000,
				"rx_rate":	1000,
				"port":	255,
				"neighbour_devs":	{
					"02:00:00:00:00:03":	{
						"mac":	"02:00:00:00:00:03",
						"ip":	"192.0.2.23",
						"type":	"ap",
						"sn":	"S3",
						"project_id":	1
					}
				},
				"unknown_devs":	{
				}
			}
		}
	},
	"resp_code":	0
})";

TEST_F(TopoInfo, ShowsUpLinkPortsAndNeighbours) {
    topo_upport = 3;
    vlans({{"qvlan.pvid", "1"}, {"lan.0.vlanid", "10"}, {"lan.1.vlanid", "20"}});
    set("qvlan.truck.port", "1,0");
    write_file("/tmp/file_topo",
               "mac=02:00:00:00:00:01~ip=192.0.2.21~type=ap~port=1~sn=NXT0000000002~"
               "project_id=4711~is_neigh=1~is_active=0~\n"
               "mac=02:00:00:00:00:02~ip=192.0.2.22~type=switch~port=1~sn=S2~"
               "project_id=none~is_neigh=1~is_active=1~\n"
               "mac=02:00:00:00:00:03~ip=192.0.2.23~type=ap~port=255~sn=S3~"
               "project_id=1~is_neigh=1~is_active=1~\n"
               "mac=02:00:00:00:00:04~ip=192.0.2.24~type=ap~port=1~sn=S4~"
               "project_id=1~is_neigh=0~is_active=1~\n");
    call(topo_info);
    vap::advance(100);
    vap::patch_hardware(
        {{"ports", {{"1", port(1'024'000, 2'048'000)}, {"3", port(1'024, 512'000)}}}});
    std::string response;
    // The second port's bytes of these 100 seconds show as those of one: the first
    // port's question came a moment earlier.
    EXPECT_EQ(output_of([&] { response = call(topo_info); }, false),
              "ifname:wlan1, link_rate:1000\n");
    EXPECT_EQ(response, whole_report);
}

TEST_F(TopoInfo, KnowsTheUpLink) {
    const struct {
        const char *why;
        int up_port;
        Json patch;
        int shown;
        int link_rate;
    } rows[] = {
        {"first wired port at full speed", 1, {{"speed", 1000}}, 1, 1000},
        {"at 100 Mbit/s", 1, {{"speed", 100}}, 1, 100},
        {"10 Mbit/s count as 100", 1, {{"speed", 10}}, 1, 100},
        {"second wired port", 3, nullptr, 2, 1000},
        {"wireless side", 255, nullptr, 255, 0},
        {"a port that the switch lacks", 7, nullptr, 7, 0},
        {"no link", 1, {{"link", false}}, 1, 0},
    };
    for (const auto &row : rows) {
        topo_upport = row.up_port;
        if (!row.patch.is_null()) {
            vap::patch_hardware({{"ports", {{"1", row.patch}}}});
        }
        const Json info = report()["dev_info"];
        EXPECT_EQ(info["up_port"], row.shown) << row.why;
        EXPECT_EQ(info["link_rate"], row.link_rate) << row.why;
    }
}

TEST_F(TopoInfo, ShowsTheLinkOfEachPort) {
    vap::patch_hardware({{"ports", {{"1", {{"link", false}}}, {"3", {{"speed", 100}}}}}});
    const Json ports = report()["port_info"];
    EXPECT_EQ(ports["1"]["link_rate"], 0);
    EXPECT_EQ(ports["2"]["link_rate"], 1000) << "whatever its speed";
    vap::patch_hardware({{"ports", {{"1", {{"link", true}}}, {"3", {{"link", false}}}}}});
    const Json wireless = report()["port_info"]["255"];
    for (const char *member : {"link_rate", "tx_rate", "rx_rate"}) {
        EXPECT_EQ(wireless[member], 0) << "as the last wired port: " << member;
    }
    EXPECT_FALSE(wireless.contains("vlan_id"));
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
    const auto line = [](const std::string &mac, const std::string &middle) {
        return "mac=" + mac + "~" + middle + "~is_active=1~\n";
    };
    const std::string whole = "ip=1.2.3.4~type=ap~port=1~sn=S~project_id=1~is_neigh=1";
    const struct {
        const char *why;
        std::string text;
        bool kept;
    } rows[] = {
        {"whole", line("a", whole), true},
        {"no line end", "mac=a~" + whole + "~is_active=1~", true},
        {"nothing behind the flag that counts", "mac=a~" + whole + "~", true},
        {"no serial number", line("a", "ip=1.2.3.4~type=ap~port=1~sn=~project_id=1~is_neigh=1"),
         false},
        {"too long a type", line("a", "ip=1~type=12345678~port=1~sn=S~project_id=1~is_neigh=1"),
         false},
        {"no neighbour", line("a", "ip=1~type=ap~port=1~sn=S~project_id=1~is_neigh=2"), false},
        {"other port", line("a", "ip=1~type=ap~port=3~sn=S~project_id=1~is_neigh=1"), false},
        {"fields in another order", line("a", "type=ap~ip=1~port=1~sn=S~project_id=1~is_neigh=1"),
         false},
        {"what a line lacks is not taken from the one before",
         line("b", "ip=1~type=ap~port=3~sn=S~project_id=1~is_neigh=1") + "mac=a~ip=1~\n", false},
        {"overlong line", line("a", whole + std::string(400, 'x')), true},
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
    const struct {
        const char *why;
        const char *flags;
        const char *first;
        const char *second;
    } rows[] = {
        {"both carry one VLAN", "0,0", "10", "20"},
        {"both carry all", "1,1", "1 10 20", "1 10 20"},
        {"the second does", "0 1", "10", "1 10 20"},
        {"missing flags are 0", "1", "1 10 20", "20"},
        {"none at all", "", "10", "20"},
    };
    for (const auto &row : rows) {
        set("qvlan.truck.port", row.flags);
        const Json ports = report()["port_info"];
        EXPECT_EQ(ports["1"]["vlan_id"], row.first) << row.why;
        EXPECT_EQ(ports["2"]["vlan_id"], row.second) << row.why;
    }
    set("wl.0.vlan.enable", "0");
    set("qvlan.truck.port", "1,0");
    const Json off = report();
    EXPECT_EQ(off["dev_info"]["total_vlan"], "");
    EXPECT_EQ(off["port_info"]["1"]["vlan_id"], "");
    EXPECT_EQ(off["port_info"]["2"]["vlan_id"], "20") << "as stored";
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
           {"wlan1.7_bss_vlanid", "30"}});
    EXPECT_EQ(text(), "10 20 30");
    vlans({{"wlan0.3_bss_enable", "1"},
           {"wlan0.3_bss_vlanid", "7"},
           {"wlan0.2_bss_enable", "2"},
           {"wlan0.2_bss_vlanid", "8"},  // only 1 switches on
           {"wlan0.4_bss_enable", "1"},
           {"wlan0.4_bss_vlanid", "9"}});  // no such SSID
    EXPECT_EQ(text(), "7 10 20 30");
    // Sixteen of the widest numbers fit; their difference is no 32-bit number.
    vlans({{"qvlan.pvid", "2147483647"}, {"manage.vlanid", "-2147483648"}});
    for (int slot = 0; slot < 8; ++slot) {
        const std::string radio = slot < 4 ? "wlan0." : "wlan1.";
        for (const std::string &name :
             {radio + std::to_string(slot), "wlan1." + std::to_string(slot)}) {
            vlans({{name + "_bss_enable", "1"},
                   {name + "_bss_vlanid",
                    std::to_string(-2147483640 + 10 * slot + (name[4] - '0'))}});
        }
    }
    const std::string wide = text();
    EXPECT_THAT(wide, ::testing::StartsWith("-2147483648 -2147483640 -2147483639 "));
    EXPECT_THAT(wide, ::testing::EndsWith(" 20 2147483647"));
}

TEST_F(TopoInfo, MeasuresPortRates) {
    PortRate rate;
    get_port_rate(0, rate);
    get_port_rate(1, rate);
    const struct {
        const char *why;
        double seconds;
        int index;
        uint64_t in, out;
        int rx, tx;
    } rows[] = {
        {"averaged over the interval", 10, 0, 102'400, 1'024'000, 80, 800},
        {"nothing came", 10, 0, 102'400, 1'024'000, 0, 0},
        {"below a kibibyte a second", 10, 0, 102'400 + 10'239, 1'024'000, 0, 0},
        {"less than a second after the other port", 0, 1, 2'048, 1'024, 16, 8},
        {"64-bit counters", 10, 0, 6'000'000'000, 102'400 + (1ULL << 32), 4'687'408, 3'354'720},
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

TEST_F(TopoInfo, TracesTheCountersThatItRead) {
    PortRate rate;
    vap::patch_hardware({{"ports", {{"1", port(6'000'000'000, 7)}}}});
    EXPECT_THAT(output_of([&] { get_port_rate(0, rate); }),
                MatchesRegex("\\[get_port_rate\\]\\[[0-9]+\\] : res:6000000000,7,[0-9]+,[0-9]+\n"));
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
    vap::fail("open", 1, 2);
    const Json report_without = report()["port_info"]["1"];
    EXPECT_EQ(report_without["tx_rate"], 0);
    EXPECT_EQ(report_without["rx_rate"], 0);
}

TEST_F(TopoInfo, EndsCleanlyWhenMemoryEnds) {
    write_file("/tmp/file_topo",
               "mac=a~ip=1~type=ap~port=1~sn=S~project_id=1~is_neigh=1~is_active=1~\n");
    int failing = 1;
    for (bool whole = false; !whole; ++failing) {
        const test::JsonAllocations memory(failing);
        const std::string response = call(topo_info);
        whole = test::JsonAllocations::made() < failing;
        EXPECT_EQ(test::JsonAllocations::live(), 0) << "allocation " << failing;
        if (whole) {
            EXPECT_THAT(response, HasSubstr("\"resp_code\":\t0"));
        }
    }
    EXPECT_GT(failing, 50);
}

TEST_F(TopoInfo, ReadsTheBitRateOfAnInterface) {
    vap::patch_hardware({{"radios", {{"24", {{"bit_rate", 300}}}, {"5", {{"bit_rate", 866.7}}}}}});
    int rate = -1;
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan1", &rate), 0);
    EXPECT_EQ(rate, 38'400);
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan0", &rate), 0);
    EXPECT_EQ(rate, 110'937);
    EXPECT_EQ(iwconfig_get_ifname_rate("wlan7", &rate), 0);
    EXPECT_EQ(rate, 0) << "the tool knows no such interface";
    EXPECT_THAT(effects({"popen"}), ElementsAre("popen iwconfig wlan1 | grep \"Bit Rate\" re",
                                                "popen iwconfig wlan0 | grep \"Bit Rate\" re",
                                                "popen iwconfig wlan7 | grep \"Bit Rate\" re"));
    for (const char *name : {"wlan1 ", "wlan1'", "wlan\"1", "-a", "wlan1|x", ""}) {
        EXPECT_THAT(output_of([&] { EXPECT_EQ(iwconfig_get_ifname_rate(name, &rate), -1); }, false),
                    MatchesRegex("IN iwconfig_get_ifname_rate on [0-9]+ cmd check error\n"))
            << name;
    }
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
    const auto lines = effects();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], ::testing::StartsWith("db_table_init default alldevs "));
    EXPECT_EQ(lines[1], "db_table_set_delay_sync_memdb default.alldevs 1");
    EXPECT_EQ(lines[2], lines[0]);
    std::vector<std::string> columns;
    for (const Json &column :
         Json::parse(lines[0].substr(strlen("db_table_init default alldevs ")))) {
        columns.push_back(column["name"].get<std::string>() + " " +
                          column["kind"].get<std::string>() + " " + column["width"].dump() +
                          (column["key"] == true ? " key" : ""));
    }
    EXPECT_THAT(columns, ElementsAre("mac text 32 key", "ip text 32", "type text 64",
                                     "port integer 0", "sn text 64", "project_id text 64",
                                     "is_neigh integer 0", "is_active integer 0"));
}

}  // namespace
