#include "topo/exchange.h"

#include "builtin.h"
#include "platform/apmib.h"
#include "tests/support/support.h"
#include "topo/daemons.h"
#include "topo/server.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
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
    /** Effects since the last look as "<uptime> <operation> <arguments>"; a message to the
     *  module shows its code and the server's address. */
    std::vector<std::string> steps() {
        std::vector<std::string> lines;
        for (const Json &line : vap::journal()) {
            const Json &args = line["args"];
            std::string text = line["op"].get<std::string>() + " " +
                               (args[0].is_string() ? args[0].get<std::string>() : "");
            if (text.starts_with("holymsg_publish")) {
                const Json message =
                    Json::parse(args.size() > 2 ? args[2].get<std::string>() : "{}");
                text = "module " + args[1].dump() + " " + message.value("server_ip", "");
            }
            EXPECT_EQ(line["thread"], "topo");
            lines.push_back(std::to_string(line["time"].get<int>()) + " " + text);
        }
        vap::clear_journal();
        return lines;
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
        ElementsAre("86410 doSystemCmd insmod /lib/modules/network_topology.ko", "86420 module 2 ",
                    "86420 module 3 ", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf", "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 do_file_cmd /etc/lldpd.conf",
                    "86420 monitor_mstart lldpd -B -f -c /etc/lldpd.conf",
                    "86420 monitor_mstart ntdd", "86420 module 4 "));
    EXPECT_EQ(read_file("/etc/lldpd.conf"), lldpd_conf);
    EXPECT_EQ(topo_upport, 1) << "as the module answered";
}

class Daemons : public test::Device {
  protected:
    static void runs(const std::vector<std::string> &names) {
        vap::patch_hardware({{"processes", names}});
    }
};

TEST_F(Daemons, RewritesTheFileOfARunningLldpd) {
    runs({"lldpd"});
    set("nx.project.id", "4711");
    write_file("/etc/lldpd.conf", "an older file");
    nx_start_lldpd();
    EXPECT_EQ(read_file("/etc/lldpd.conf"), lldpd_conf);
    EXPECT_THAT(effects({"doSystemCmd", "monitor_mstart"}),
                ElementsAre("doSystemCmd sed -i '3c project_id=4711' /etc/lldpd.conf",
                            "doSystemCmd killall lldpd"));
    for (const char *project : {"-12", ""}) {
        set("nx.project.id", project);
        nx_restart_lldpd();
        EXPECT_THAT(read_file("/etc/lldpd.conf"),
                    HasSubstr("1\nproject_id=" + std::string(project) + "\ntx"));
    }
}

TEST_F(Daemons, KeepsWhatIsNoProjectFromTheFileAndTheShell) {
    runs({"lldpd"});
    for (const char *project : {"1'2", "$(reboot)", "1 2", "-", "x", "1\ntx_ifnames=eth0"}) {
        set("nx.project.id", project);
        EXPECT_THAT(output_of(nx_start_lldpd, false),
                    MatchesRegex("IN nx_restart_lldpd on [0-9]+ cmd check error\n"));
        EXPECT_THAT(effects({"doSystemCmd"}), ElementsAre("doSystemCmd killall lldpd")) << project;
        EXPECT_THAT(read_file("/etc/lldpd.conf"), HasSubstr("1\nproject_id=\ntx")) << project;
    }
    ApmibSetValue("ZQ_ATE_SN", "SN\nproject_id=9");
    nx_start_lldpd();
    EXPECT_THAT(read_file("/etc/lldpd.conf"), HasSubstr("serial_number=SN\nproject_id=\ntx"));
}

TEST_F(Daemons, StartsADaemonOnce) {
    const struct {
        int (*start)();
        const char *name;
    } rows[] = {{nx_start_ssdpd, "ssdpd"},
                {nx_start_ndtt, "ntdd"},
                {[] { return nx_start_lldpd(), 0; }, "lldpd"}};
    for (const auto &row : rows) {
        const std::string name = row.name;
        vap::fail("monitor_mstart");
        row.start();
        EXPECT_THAT(effects({"log_debug_print"}),
                    ElementsAre(MatchesRegex("log_debug_print nx_start_[a-z]+ [0-9]+ 3 5 start " +
                                             name + " process is fail.")));
        EXPECT_EQ(row.start(), 0);
        EXPECT_THAT(effects({"monitor_mstart", "log_debug_print"}),
                    ElementsAre(StartsWith("monitor_mstart " + name)));
        row.start();
        EXPECT_THAT(effects({"monitor_mstart"}), IsEmpty()) << "it runs";
    }
    EXPECT_NE(nx_start_ndtt(), 0);
}

}  // namespace
