/**
 * Every command and every upload, with each allocation of its JSON failing once:
 * nothing crashes, nothing is lost, and an answer that leaves carries its verdict.
 */
#include "alarm/alarm.h"
#include "cloud/config_file.h"
#include "cloud/identity.h"
#include "core/cloud_api.h"
#include "net/net_api.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"
#include "wireless/request_config_upload.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::HasSubstr;

class Sweep : public test::Device {
  protected:
    Sweep() {
        cloud_api();
        dev_api();
        net_api();
        wireless_api();
        set("wl.identifyOS_en", "1");
        set("wl.0.vlan.enable", "1");
        set("qvlan_mode_enable", "1");
        set("sys.schedulereboot.type", "1");
        write_file("/tmp/file_topo",
                   "mac=02:00:00:00:00:01~ip=192.168.1.9~type=ap~port=1~sn=S1~project_id=7~"
                   "is_neigh=1~is_active=1~\n");
        vap::patch_hardware(vap::Json::parse(R"({
            "system": {"cpu": 95, "rom": 95},
            "stations": {
                "02:57:00:00:00:01": {"band": 24, "ssid": 0, "online": 50},
                "02:57:00:00:00:02": {"band": 5, "ssid": 0, "online": 50}}})"));
    }
};

struct Command {
    const char *family;
    int slot;
    const char *request;
    int allocations; /**< at least as many; the row does what it is there for */
};

constexpr Command commands[] = {
    {"cloud", 0, R"({"cloud_id": "c", "project_id": 7})", 15},
    {"cloud", 1, "", 4},
    {"cloud", 2, "#The word of \"Default\" must not be removed\nDefault\nap.apname=ZX-A5V1.0\n", 4},
    {"cloud", 3, R"({"cloud_status": 0})", 6},
    {"cloud", 4, R"({"cloud_id": "c"})", 8},
    {"dev", 0, "", 100},
    {"dev", 1, "", 30},
    {"dev", 2, "", 300},
    {"dev", 3, R"({"timestamp": 1767225600, "time_array": [{"mode": 1, "timestamp": 5}]})", 15},
    {"dev", 4, R"({"wireless": {"timestamp": 5, "wireless_config": {"radio1": [{"ssid": "a"}]},
                   "radio_config": {"rf_rule": [{"channel": 6}]},
                   "radio_optimize": {"channel_1": 6}}, "maint": {"mainetmode": 0}})",
     30},
    {"dev", 5, "", 4},
    {"dev", 6, R"({"mainetmode": 2, "cycle_restart": {"timeval": 720}})", 8},
    {"dev", 7, R"([{"mac": "02:57:00:00:00:01"}])", 6},
    {"dev", 8, R"({"length": 100})", 5},
    {"dev", 9, "", 4},
    {"dev", 19, "", 50},
    {"dev", 20, R"({"server_ip": 3232235777, "server_port": 80})", 15},
    {"dev", 23, R"({"op": 1})", 5},
    // An address that never reaches the shell: the notice of the failure is sent.
    {"dev", 24, R"({"size": 100, "url": "http://x/;y"})", 10},
    {"dev", 26, R"({"copy_sn": "S2"})", 6},
    {"net", 0, "", 4},
    {"net", 4, "", 15},
    {"wlan", 0, R"({"timestamp": 5, "radio1": [{"ssidenable": 1, "ssid": "a", "vlan": "20"}]})",
     15},
    {"wlan", 1, R"({"rf_optimize": {"channel_1": 6}})", 10},
    {"wlan", 2, R"({"rf_rule": [{"channel": 6}, {"channel": 36}]})", 10},
    {"wlan", 3, "", 100},
};

TEST_F(Sweep, CommandsLoseNothingWhenAnAllocationFails) {
    for (const Command &row : commands) {
        SCOPED_TRACE(std::string(row.family) + "/" + std::to_string(row.slot));
        nxapi::Answer answer;
        const int runs = test::fail_each_allocation(
            [&] {
                answer = nxapi::call(row.family, row.slot, row.request);
                vap::advance(60);  // worker threads come to their end
            },
            [&](bool passed) {
                EXPECT_EQ(answer.result == 0, answer.response.has_value());
                if (answer.response) {
                    EXPECT_THAT(*answer.response, HasSubstr("resp_code"));
                }
                EXPECT_TRUE(!passed || answer.response);
                vap::clear_journal();
            });
        EXPECT_GE(runs, row.allocations);
    }
}

TEST_F(Sweep, UploadsLoseNothingWhenAnAllocationFails) {
    struct Upload {
        const char *name;
        int (*make)();
        int pause; /**< virtual seconds until it may be made again */
    } const rows[] = {
        {"binding", set_bind_info, 0},
        {"management mode", norvex_mode_change_upload, 0},
        {"configuration", norvex_config_upload, 0},
        {"configuration request", request_config_upload, 0},
        {"alarm", api_alarm_upload, 601},
    };
    for (const Upload &row : rows) {
        SCOPED_TRACE(row.name);
        int result = 0;
        test::fail_each_allocation(
            [&] {
                vap::advance(row.pause);
                result = row.make();
            },
            [&](bool passed) {
                if (passed) {
                    EXPECT_EQ(result, 0);
                }
            });
    }
}

}  // namespace
