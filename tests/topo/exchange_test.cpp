#include "topo/exchange.h"

#include "builtin.h"
#include "tests/support/support.h"
#include "topo/daemons.h"
#include "topo/server.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using vap::Json;

constexpr const char *lldpd_conf =
    "work_mode=ap\n"
    "serial_number=NXT0000000001\n"
    "project_id=4711\n"
    "txrx_ifnames=br0,eth0,wlan0,wlan1,wlan0-vxd,wlan1-vxd\n"
    "tx_ifnames=br0\n"
    "tx_can_carry=br0\n";

class Exchange : public test::Device {
  protected:
    /** Effects since the last look as "<uptime> <operation> <first arguments>";
     *  a message to the module shows its code and the server's address. */
    std::vector<std::string> steps() {
        std::vector<std::string> lines;
        for (const Json &line : vap::journal()) {
            std::string text = std::to_string(line["time"].get<int>()) + " " +
                               line["op"].get<std::string>() + " " + word(line["args"][0]);
            if (line["op"].get<std::string>().starts_with("holymsg_publish")) {
                text =
                    std::to_string(line["time"].get<int>()) + " module " + line["args"][1].dump();
                const Json message = Json::parse(
                    line["args"].size() > 2 ? line["args"][2].get<std::string>() : "{}");
                text += message.contains("server_ip") ? " " + word(message["server_ip"]) : "";
            }
            EXPECT_EQ(line["thread"], "topo");
            lines.push_back(text);
        }
        vap::clear_journal();
        return lines;
    }

  private:
    static std::string word(const Json &argument) {
        return argument.is_string() ? argument.get<std::string>() : argument.dump();
    }
};

TEST_F(Exchange, WaitsForManagementAndThenStartsEverythingInOrder) {
    topo_upport = 224;
    set("nx.project.id", "4711");
    set("nx.manage.status", "0");
    vap::clear_journal();
    norvex_topo_exc_start();
    vap::settle();
    EXPECT_THAT(steps(), ElementsAre("0 holymsg_subscribe net_topo.server_port.from_kernel",
                                     "0 module 3 " NX_TOPO_SERVER));
    vap::advance(86400);
    EXPECT_THAT(steps(), IsEmpty()) << "an unmanaged device waits for ever";
    vap::advance(3);
    set("nx.manage.status", "1");
    vap::clear_journal();
    vap::advance(60);
    EXPECT_THAT(
        steps(),
        ElementsAre("86410 doSystemCmd insmod /lib/modules/network_topology.ko", "86420 module 2",
                    "86420 module 3 ", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 monitor_mstart lldpd -B -f -c /etc/lldpd.conf",
                    "86420 monitor_mstart ntdd", "86420 module 4"));
    EXPECT_EQ(read_file("/etc/lldpd.conf"), lldpd_conf);
    EXPECT_EQ(topo_upport, 1) << "as the module answered";
}

TEST_F(Exchange, SaysWhenItsThreadCannotStart) {
    vap::fail("pthread_create");
    EXPECT_THAT(output_of([] { norvex_topo_exc_start(); }),
                MatchesRegex("\\[norvex_topo_exc_start\\]\\[[0-9]+\\] : "
                             "pthread create start_topo_exc error\n"));
}

class Daemons : public test::Device {
  protected:
    static void runs(const std::vector<std::string> &names) {
        vap::patch_hardware({{"processes", names}});
    }
};

TEST_F(Daemons, RewritesTheProjectOfARunningLldpd) {
    runs({"lldpd"});
    set("nx.project.id", "4711");
    nx_start_lldpd();
    EXPECT_EQ(read_file("/etc/lldpd.conf"), lldpd_conf);
    EXPECT_THAT(effects({"doSystemCmd", "monitor_mstart"}),
                ElementsAre("doSystemCmd sed -i '3c project_id=4711' /etc/lldpd.conf",
                            "doSystemCmd killall lldpd"));
}

TEST_F(Daemons, ReplacesTheThirdLineAlone) {
    write_file("/etc/lldpd.conf", "one\ntwo\nthree\nfour\n");
    set("nx.project.id", "-12");
    EXPECT_THAT(output_of([] { nx_restart_lldpd(); }), HasSubstr("] : restart lldpd...\n"));
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "one\ntwo\nproject_id=-12\nfour\n");
    set("nx.project.id", "");
    nx_restart_lldpd();
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "one\ntwo\nproject_id=\nfour\n");
}

TEST_F(Daemons, KeepsAnUnsafeProjectFromTheShell) {
    write_file("/etc/lldpd.conf", "one\ntwo\nthree\n");
    for (const char *project : {"1'2", "1;reboot", "$(reboot)", "1 2", "-", "x", "1\n2"}) {
        set("nx.project.id", project);
        effects();
        EXPECT_THAT(output_of([] { nx_restart_lldpd(); }, false),
                    MatchesRegex("IN nx_restart_lldpd on [0-9]+ cmd check error\n"))
            << project;
        EXPECT_THAT(effects(), ElementsAre("doSystemCmd killall lldpd")) << project;
    }
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "one\ntwo\nthree\n");
}

TEST_F(Daemons, StartsADaemonOnce) {
    const struct {
        int (*start)();
        const char *name;
    } rows[] = {{nx_start_ssdpd, "ssdpd"}, {nx_start_ndtt, "ntdd"}};
    for (const auto &row : rows) {
        const std::string name = row.name;
        effects();
        vap::fail("monitor_mstart");
        EXPECT_LT(row.start(), 0);
        const auto failed = effects();
        ASSERT_EQ(failed.size(), 2U);
        EXPECT_EQ(failed[0], "monitor_mstart " + name);
        EXPECT_THAT(failed[1], MatchesRegex("log_debug_print nx_start_[a-z]+ [0-9]+ 3 5 start " +
                                            name + " process is fail."));
        EXPECT_EQ(row.start(), 0);
        EXPECT_THAT(effects(), ElementsAre("monitor_mstart " + name));
        EXPECT_NE(row.start(), 0) << "it runs";
        EXPECT_THAT(effects(), IsEmpty());
    }
}

TEST_F(Daemons, LogsThatLldpdDidNotStart) {
    vap::fail("monitor_mstart");
    nx_start_lldpd();
    EXPECT_THAT(effects({"log_debug_print"}),
                ElementsAre(MatchesRegex("log_debug_print nx_start_lldpd [0-9]+ 3 5 "
                                         "start lldpd process is fail.")));
}

}  // namespace
