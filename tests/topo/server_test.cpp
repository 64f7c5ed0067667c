#include "topo/server.h"

#include <thread>

#include "builtin.h"
#include "json.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"
#include "topo/discovery.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using vap::Json;

class Server : public test::Device {
  protected:
    Server() {
        topo_upport = 224;
        topo_server_set({});
        vap::clear_journal();
    }

    /** Code and JSON of the only message that `act` sends to the module. */
    static std::pair<int, Json> sent(const std::function<void()> &act) {
        vap::clear_journal();
        act();
        const std::vector<Json> lines = vap::journal();
        if (lines.size() != 1 || lines[0]["op"] != "holymsg_publish" ||
            lines[0]["args"][0] != "net_topo.to_kernel") {
            ADD_FAILURE() << Json(lines).dump();
            return {};
        }
        const Json &args = lines[0]["args"];
        return {args[1].get<int>(), Json::parse(args[2].get<std::string>())};
    }

    /** Result and result object of asking for the server's port. */
    static std::pair<int, std::string> asked() {
        const ::Json result = json_object();
        const int code = km_net_topo_get_server_in_which_port(result.get());
        const JsonText text(cJSON_PrintUnformatted(result.get()));
        return {code, text.get()};
    }
};

TEST_F(Server, TakesTheServerFromTheCloud) {
    struct Row {
        const char *request, *ip, *port, *proto;
    } const rows[] = {
        {R"({"server_ip":3232235777,"server_port":11812,"server_proto":"udp"})", "192.168.1.1",
         "11812", "udp"},
        {R"({"server_ip":16909060})", "1.2.3.4", "0", "tcp"},
        {R"({"server_ip":-1,"server_port":-2147483648})", "255.255.255.255", "-214748", "tcp"},
        {R"({"server_ip":"1.2.3.4","server_port":"1","server_proto":5})", "0.0.0.0", "0", "tcp"},
        {R"({"server_proto":"0123456789abcdef"})", "0.0.0.0", "0", "0123456789abcde"},
    };
    for (const Row &row : rows) {
        std::string response;
        const auto [code, info] = sent([&] { response = call(server_info, row.request); });
        EXPECT_EQ(response, "{\n\t\"resp_code\":\t0\n}");
        EXPECT_STREQ(topo_serverip, row.ip);
        EXPECT_STREQ(topo_serverport, row.port);
        EXPECT_STREQ(topo_server_proto, row.proto);
        EXPECT_EQ(code, 3);
        EXPECT_EQ(info, (Json{{"server_proto", row.proto},
                              {"server_ip", row.ip},
                              {"server_port", row.port},
                              {"pass_throuth_ip", NX_RESOLVER},
                              {"pass_throuth_port", "514"}}));
    }
}

TEST_F(Server, ServesSlot20) {
    ASSERT_EQ(dev_api(), 0);
    EXPECT_EQ(nxapi::call("dev", 20, R"({"server_ip":1})").result, 0);
    EXPECT_STREQ(topo_serverip, "0.0.0.1");
    EXPECT_THAT(output_of([] { nxapi::call("dev", 20, R"({"server_ip":1})"); }),
                HasSubstr("] : \ntopo server info :{\n\t\"server_ip\":\t1\n}\n"));
}

TEST_F(Server, CopiesTheTextsWhole) {
    // While one thread names servers, another must never see half of one.
    const TopoServer servers[] = {{"1.1.1.1", "1", "a"}, {"22.22.22.22", "22", "bb"}};
    topo_server_set(servers[0]);
    std::thread writer([&] {
        for (int i = 0; i < 20000; ++i) {
            topo_server_set(servers[i % 2]);
        }
    });
    int torn = 0;
    for (int i = 0; i < 20000; ++i) {
        const TopoServer seen = topo_server_get();
        const TopoServer &expected = servers[strcmp(seen.port, "22") == 0 ? 1 : 0];
        torn += strcmp(seen.ip, expected.ip) != 0 || strcmp(seen.proto, expected.proto) != 0;
    }
    writer.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(Server, SendsNothingThatIsNotWhole) {
    EXPECT_EQ(km_net_topo_set_valid_interface(nullptr), 1);
    EXPECT_EQ(km_net_topo_set_server_info(nullptr), 1);
    EXPECT_EQ(km_net_topo_get_server_in_which_port(nullptr), 1);
    int failing = 0;
    do {
        EXPECT_THAT(effects(), IsEmpty());
        const test::JsonAllocations allocations(++failing);
        ntdd_set_server_info("1.2.3.4", "1", "tcp");
    } while (test::JsonAllocations::made() >= failing);
    EXPECT_THAT(effects(), SizeIs(1));
}

TEST_F(Server, NamesTheInterfacesThatCount) {
    const std::string fixed =
        R"({"name":"br0","type":"lan"},{"name":"eth0","type":"wan"},)"
        R"({"name":"wlan0","type":"lan"},{"name":"wlan1","type":"lan"},)"
        R"({"name":"wlan0-vxd","type":"wan"},{"name":"wlan1-vxd","type":"wan"})";
    set("manage.vlanid", "7");
    set("lan.2.vlanid", "30");
    set("wlan1.0_bss_vlanid", "20");
    set("wl.0.vlan.enable", "1");
    auto [code, info] = sent(ntdd_set_valid_ifname);
    EXPECT_EQ(code, 2);
    EXPECT_EQ(info.dump(), R"({"ifnames":[)" + fixed + "]}") << "the VLAN mode is off";
    set("qvlan_mode_enable", "1");
    info = sent(ntdd_set_valid_ifname).second;
    EXPECT_EQ(info.dump(),
              R"({"ifnames":[)" + fixed +
                  R"(,{"name":"vlan7","type":"lan"},{"name":"vlan30","type":"lan"})"
                  R"(,{"name":"vlan20","type":"lan"},{"name":"vlan20","type":"lan"}]})");
    set("wl.0.vlan.enable", "2");
    EXPECT_EQ(sent(ntdd_set_valid_ifname).second["ifnames"].size(), 6U);
}

TEST_F(Server, AsksTheModuleForTheServersPort) {
    const auto answer_of = [](Json topology) {
        topology["silent"] = topology.value("silent", false);
        vap::patch_hardware({{"topology", topology}});
    };
    answer_of({{"port", 3}, {"if_name", "eth0"}});
    EXPECT_EQ(asked(), std::pair(0, std::string(R"({"port":3,"if_name":"eth0"})")));
    EXPECT_THAT(effects({"holymsg_publish_and_respond"}),
                ElementsAre("holymsg_publish_and_respond net_topo.to_kernel 4"));
    ntdd_get_server_in_which_port();
    EXPECT_EQ(topo_upport, 3);

    answer_of({{"port", 1}, {"if_name", nullptr}});
    EXPECT_NE(asked().first, 0) << "no interface name";
    EXPECT_EQ(asked().second, R"({"port":1})");
    ntdd_get_server_in_which_port();
    EXPECT_EQ(topo_upport, 1) << "the port counts all the same";

    for (const char *data : {"", "{", "[]", R"({"port":"1"})"}) {
        answer_of({{"data", data}});
        EXPECT_NE(asked().first, 0) << data;
        EXPECT_EQ(asked().second, "{}") << data;
    }
    answer_of({{"silent", true}});
    EXPECT_EQ(asked(), std::pair(0, std::string("{}"))) << "no answer is no failure";
    EXPECT_THAT(output_of(ntdd_get_server_in_which_port), IsEmpty());
    EXPECT_EQ(topo_upport, 1);
}

TEST_F(Server, FollowsTheModulesEvents) {
    const auto event = [](const char *text) {
        ntdd_server_in_which_port_event_callback("net_topo.server_port.from_kernel", text,
                                                 static_cast<int>(strlen(text)), nullptr);
    };
    const std::string traced = output_of([&] { event(R"({"port":255,"if_name":"wlan0-vxd"})"); });
    EXPECT_THAT(traced, HasSubstr("server in port 255\n"));
    EXPECT_THAT(traced, HasSubstr("wlan0-vxd"));
    EXPECT_EQ(topo_upport, 255);
    for (const char *nothing : {"", "null", R"({"if_name":"eth0"})", R"({"port":"3"})"}) {
        event(nothing);
        EXPECT_EQ(topo_upport, 255) << nothing;
    }
}

TEST_F(Server, SendsTheMarkerPacket) {
    const std::string to = std::string(" ") + NX_RESOLVER + " 514";
    EXPECT_EQ(send_pass_route_data("192.168.1.20", "0A:1B:2C:3D:4E:5F", 0), 20);
    EXPECT_THAT(effects(), ElementsAre("sendto 1234567887654321c0a801140a1b2c3d4e5f0000" + to));
    send_pass_route_data("no address", "0a-1b-2c-3d", 0);  // any separator; the rest is missing
    EXPECT_THAT(effects(), ElementsAre("sendto 1234567887654321ffffffff0a1b2c3d00000000" + to));
    vap::fail("socket");
    EXPECT_THAT(output_of([] { EXPECT_EQ(send_pass_route_data("1.1.1.1", "", 0), -1); }),
                HasSubstr("create socket fail!\n"));
    vap::fail("sendto");
    EXPECT_THAT(output_of([] { EXPECT_EQ(send_pass_route_data("1.1.1.1", "", 0), -1); }),
                HasSubstr("send udp packet faild....!\n"));
}

TEST_F(Server, AsksLocalDiscoveryWithoutHangingOnIt) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(active_autodiscover(), 1); }), "");
    EXPECT_THAT(effects({"autodiscover"}), ElementsAre("autodiscover 01" + std::string(126, '0')));
    vap::patch_hardware({{"discovery", "silent"}});
    EXPECT_EQ(active_autodiscover(), 1);
    vap::fail("connect");
    const std::string traced = output_of([] { EXPECT_EQ(active_autodiscover(), 1); });
    EXPECT_THAT(traced, HasSubstr("connect the server error\n"));
    EXPECT_THAT(traced, HasSubstr("write to server error\n")) << "and no SIGPIPE";
    vap::fail("socket");
    EXPECT_THAT(output_of([] { EXPECT_EQ(active_autodiscover(), 1); }),
                HasSubstr("creat socket error\n"));
}

TEST_F(Server, LooksUpWiredStations) {
    const auto lookup = [](const char *mac) {
        char text[8] = "before";
        int number = -1;
        wirestation_lookup(mac, text, sizeof text, &number);
        return std::string(text) + " " + std::to_string(number);
    };
    EXPECT_EQ(lookup("02:00:00:00:00:01"), "before -1") << "no file";
    write_file("/tmp/wirestation",
               "02:00:00:00:00:0a;eth0.1;5;11\n"
               "02:00:00:00:00:0b;eth0.2222;6;12\n"
               "02:00:00:00:00:0c;eth0.3;7\n"
               "garbage\n");
    EXPECT_EQ(lookup("02:00:00:00:00:0A"), "eth0.1 11");
    EXPECT_EQ(lookup("02:00:00:00:00:0B"), "eth0.22 12") << "cut to the caller's field";
    EXPECT_EQ(lookup("02:00:00:00:00:0c"), "eth0.3 0") << "a number is missing";
    EXPECT_EQ(lookup("02:00:00:00:00:01"), " 0") << "what the last line holds";
}

}  // namespace
