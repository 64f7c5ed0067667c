#include "topo/server.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <thread>

#include "builtin.h"
#include "file.h"
#include "json.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"
#include "topo/discovery.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vap::Json;

std::function<void()> before_send;

}  // namespace

// The linker leads the calls of the agent's objects here.
extern "C" ssize_t __real_send(int fd, const void *data, size_t size, int flags);
extern "C" ssize_t __wrap_send(int fd, const void *data, size_t size, int flags) {
    if (before_send) {
        before_send();
    }
    return __real_send(fd, data, size, flags);
}

namespace {

class Server : public test::Device {
  protected:
    Server() {
        topo_upport = 224;
        topo_server_set({});
        dev_api();
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
        const auto [code, info] = sent([&] {
            EXPECT_EQ(nxapi::call("dev", 20, row.request).response, "{\n\t\"resp_code\":\t0\n}");
        });
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

TEST_F(Server, SendsNothingWithoutAnObject) {
    EXPECT_EQ(km_net_topo_set_valid_interface(nullptr), 1);
    EXPECT_EQ(km_net_topo_set_server_info(nullptr), 1);
    EXPECT_EQ(km_net_topo_get_server_in_which_port(nullptr), 1);
    EXPECT_THAT(effects(), IsEmpty());
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
}

TEST_F(Server, FollowsTheModulesEvents) {
    const auto event = [](const char *text) {
        ntdd_server_in_which_port_event_callback("net_topo.server_port.from_kernel", text,
                                                 static_cast<int>(strlen(text)), nullptr);
    };
    event(R"({"port":255,"if_name":"wlan0-vxd"})");
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
    EXPECT_EQ(send_pass_route_data("1.1.1.1", "", 0), -1);
    vap::fail("sendto");
    EXPECT_EQ(send_pass_route_data("1.1.1.1", "", 0), -1);
}

TEST_F(Server, AsksLocalDiscoveryWithoutHangingOnIt) {
    EXPECT_EQ(active_autodiscover(), 1);
    EXPECT_THAT(effects({"autodiscover"}), ElementsAre("autodiscover 01" + std::string(126, '0')));
    vap::patch_hardware({{"discovery", "silent"}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(active_autodiscover(), 1);
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited.count(), 0.9);
    EXPECT_LT(waited.count(), 20);
    for (const char *call : {"connect", "socket"}) {
        vap::fail(call);
        EXPECT_EQ(active_autodiscover(), 1) << call;
    }
}

TEST_F(Server, OutlivesADiscoveryServiceThatHangsUp) {
    vap::patch_hardware({{"discovery", "absent"}});
    EXPECT_EQ(active_autodiscover(), 1);
    const Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/root/tmp/auto.socket",
             vap::folder().c_str());
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    before_send = [&] { close(accept(listener.get(), nullptr, nullptr)); };
    EXPECT_EQ(active_autodiscover(), 1) << "and no SIGPIPE";
    before_send = nullptr;
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
