/**
 * Every command and every upload, with each thing that it asks for refused once: the
 * memory of its JSON, its own memory, each call of the device. Nothing crashes, nothing
 * is lost, and an answer that leaves carries its verdict.
 */
#include <chrono>
#include <functional>
#include <optional>
#include <thread>

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

int own_allocations = 0;
int failing_own_allocation = 0; /**< 0: none */

bool own_memory_ends() {
    return failing_own_allocation > 0 && ++own_allocations == failing_own_allocation;
}

}  // namespace

// The linker leads the calls of the agent's objects here.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__wrap_malloc(size_t size) {
    return own_memory_ends() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(size_t count, size_t size) {
    return own_memory_ends() ? nullptr : __real_calloc(count, size);
}
}

namespace {

size_t descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/** The discovery program closes its end of a connection a moment later. */
bool descriptors_fall_to(size_t count) {
    for (int i = 0; i < 400 && descriptors() != count; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return descriptors() == count;
}

/** Something that a run asks for again and again. */
struct Need {
    const char *name;
    std::function<void(int nth)> refuse;
    std::function<bool(int nth)> had_fewer; /**< after the run: nothing was refused */
};

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

    /** Runs `act` with the first of its needs of each kind refused, then the second,
     *  and so on until it has no more. `check` follows every run, with whether nothing
     *  was refused in it. Returns how many needs of JSON memory there were. */
    int sweep(const std::function<void()> &act, const std::function<void(bool passed)> &check) {
        act();  // what is opened once and stays
        const size_t open_before = descriptors();
        int json_needs = 0;
        for (const Need &need : needs_) {
            bool passed = false;
            for (int nth = 1; !passed; ++nth) {
                SCOPED_TRACE(std::string(need.name) + " " + std::to_string(nth));
                need.refuse(nth);
                act();
                passed = need.had_fewer(nth);
                EXPECT_EQ(memory_ ? test::JsonAllocations::live() : 0, 0);
                EXPECT_TRUE(descriptors_fall_to(open_before)) << descriptors();
                check(passed);
                vap::clear_journal();
                json_needs = &need == &needs_[0] ? nth : json_needs;
            }
        }
        memory_.reset();
        return json_needs;
    }

  private:
    std::optional<test::JsonAllocations> memory_;
    const Need needs_[3] = {
        {"JSON memory", [this](int nth) { memory_.emplace(nth); },
         [](int nth) { return test::JsonAllocations::made() < nth; }},
        {"own memory",
         [this](int nth) {
             memory_.reset();  // its own would count
             own_allocations = 0;
             failing_own_allocation = nth;
         },
         [](int) { return own_allocations < std::exchange(failing_own_allocation, 0); }},
        {"call of the device",
         [this](int nth) {
             memory_.emplace(0);
             vap::fail("*", nth);
         },
         [](int) { return vap::forget_faults(); }},
    };
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

TEST_F(Sweep, CommandsLoseNothingWhenSomethingFails) {
    for (const Command &row : commands) {
        SCOPED_TRACE(std::string(row.family) + "/" + std::to_string(row.slot));
        nxapi::Answer answer;
        const int runs = sweep(
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
            });
        EXPECT_GE(runs, row.allocations);
    }
}

TEST_F(Sweep, UploadsLoseNothingWhenSomethingFails) {
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
        {"system log", sys_log_upload, 0},
    };
    for (const Upload &row : rows) {
        SCOPED_TRACE(row.name);
        int result = 0;
        sweep(
            [&] {
                vap::advance(row.pause);
                result = row.make();
            },
            [&](bool passed) { EXPECT_TRUE(!passed || result == 0) << result; });
    }
}

}  // namespace
