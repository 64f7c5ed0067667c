/**
 * Every command and every upload, with each thing that it asks for refused once: the
 * memory of its JSON, its own memory, each call of the device, each upload. Nothing
 * crashes, nothing is lost, and an answer that leaves carries its verdict behind the
 * sections that came about.
 */
#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <thread>

#include "alarm/alarm.h"
#include "cloud/config_file.h"
#include "cloud/identity.h"
#include "core/cloud_api.h"
#include "core/control_socket.h"
#include "core/event_loop.h"
#include "net/net_api.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"
#include "topo/exchange.h"
#include "wireless/request_config_upload.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::Contains;

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

/** Waits for no more descriptors than `count`, since the discovery program closes its
 *  end of a connection a moment later. Returns how many there are. */
size_t descriptors_fall_to(size_t count) {
    size_t open = descriptors();
    for (int i = 0; i < 400 && open > count; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        open = descriptors();
    }
    return open;
}

enum class Need { json_memory, own_memory, device_call, upload };

class Sweep : public test::Device {
  protected:
    Sweep() {
        cloud_api();
        dev_api();
        net_api();
        wireless_api();
        set("nx.manage.status", "1");
        set("wl.identifyOS_en", "1");
        set("wl.0.vlan.enable", "1");
        set("qvlan_mode_enable", "1");
        set("sys.schedulereboot.type", "1");
        write_file("/tmp/file_topo",
                   "mac=02:00:00:00:00:01~ip=192.168.1.9~type=ap~port=1~sn=S1~project_id=7~"
                   "is_neigh=1~is_active=1~\n");
        write_file("/tmp/image", std::string(100, 'i'));
        // A failing download leaves the image that is there.
        vap::patch_hardware(vap::Json::parse(R"({
            "system": {"cpu": 95, "rom": 95},
            "wget": {"status": 4},
            "firmware": {"verdicts": {"type": 2, "valid": 0, "mtd_size": 0, "crc": 0}},
            "stations": {
                "02:57:00:00:00:01": {"band": 24, "ssid": 0, "online": 50},
                "02:57:00:00:00:02": {"band": 5, "ssid": 0, "online": 50}}})"));
    }

    using Check = std::function<void(Need need, bool passed)>;

    /** Runs `act` with the first of its needs of each kind refused, then the second,
     *  and so on until it has no more. `check` follows every run, with whether nothing
     *  was refused in it. Returns how many runs each kind took. */
    std::map<Need, int> sweep(const std::function<void()> &act, const Check &check) {
        act();  // what is opened once and stays
        size_t open = descriptors();
        std::map<Need, int> runs;
        for (const auto &[need, name] : {std::pair(Need::json_memory, "JSON memory "),
                                         {Need::own_memory, "own memory "},
                                         {Need::device_call, "call of the device "},
                                         {Need::upload, "upload "}}) {
            bool passed = false;
            while (!passed) {
                SCOPED_TRACE(name + std::to_string(++runs[need]));
                refuse(need, runs[need]);
                act();
                passed = had_fewer(need, runs[need]);
                EXPECT_EQ(memory_ ? test::JsonAllocations::live() : 0, 0);
                const size_t open_now = descriptors_fall_to(open);
                EXPECT_LE(open_now, open);
                open = open_now;
                check(need, passed);
                vap::clear_journal();
            }
        }
        memory_.reset();
        return runs;
    }

  private:
    void refuse(Need need, int nth) {
        memory_.reset();
        if (need != Need::own_memory) {  // what counts the one would count as the other
            memory_.emplace(need == Need::json_memory ? nth : 0);
        }
        own_allocations = 0;
        failing_own_allocation = need == Need::own_memory ? nth : 0;
        if (need == Need::device_call) {
            vap::fail("*", nth);
        }
        refuse_upload(need == Need::upload ? nth : 0);
    }

    /** After a run: was nothing refused? */
    bool had_fewer(Need need, int nth) {
        switch (need) {
            case Need::json_memory:
                return test::JsonAllocations::made() < nth;
            case Need::own_memory:
                failing_own_allocation = 0;
                return own_allocations < nth;
            case Need::device_call:
                return vap::forget_faults();
            default:
                return forget_refusal();
        }
    }

    std::optional<test::JsonAllocations> memory_;
};

/** Names of an answer's members, in order, but the verdict at its end. */
std::vector<std::string> sections(const vap::Json &answer) {
    std::vector<std::string> names;
    for (const auto &member : answer.items()) {
        names.push_back(member.key());
    }
    EXPECT_TRUE(!names.empty() && names.back() == "resp_code") << answer;
    names.pop_back();
    return names;
}

/** A failed command keeps the sections up to its failure; one that goes on leaves out
 *  what it could not make. */
void expect_part_of(const std::vector<std::string> &whole, const vap::Json &answer) {
    const std::vector<std::string> found = sections(answer);
    auto at = whole.begin();
    for (const std::string &name : found) {
        at = std::find(at, whole.end(), name);
        ASSERT_NE(at, whole.end()) << name << " in " << answer;
        ++at;
    }
    if (answer["resp_code"] == -1) {
        EXPECT_EQ(at - whole.begin(), static_cast<std::ptrdiff_t>(found.size())) << answer;
    }
}

struct Command {
    const char *family;
    int slot;
    const char *request;
    int allocations;         /**< at least as many; the row does what it is there for */
    const char *upload = ""; /**< what follows the answer */
    int without_memory = 0;  /**< result when memory of the agent's own is refused */
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
    {"dev", 7, R"([{"mac": "02:57:00:00:00:01"}])", 6, "", -1},
    {"dev", 8, R"({"length": 100})", 5},
    {"dev", 9, "", 4},
    {"dev", 19, "", 50},
    {"dev", 20, R"({"server_ip": 3232235777, "server_port": 80})", 15},
    {"dev", 23, R"({"op": 1})", 5},
    {"dev", 24, R"({"size": 100, "url": "http://127.0.0.1/i"})", 10, "dev_upgrade_notice", -1},
    // An address that never reaches the shell: the notice of the failure is sent.
    {"dev", 24, R"({"size": 100, "url": "http://x/;y"})", 10, "dev_upgrade_notice", -1},
    {"dev", 26, R"({"copy_sn": "S2"})", 6, "nx_api_duplicate_config_upload", -1},
    {"net", 0, "", 4},
    {"net", 4, "", 15, "nx_api_net_check_back"},
    {"wlan", 0, R"({"timestamp": 5, "radio1": [{"ssidenable": 1, "ssid": "a", "vlan": "20"}]})",
     15},
    {"wlan", 1, R"({"rf_optimize": {"channel_1": 6}})", 10, "nx_api_radio_optimiza_back"},
    {"wlan", 2, R"({"rf_rule": [{"channel": 6}, {"channel": 36}]})", 10},
    {"wlan", 3, "", 100},
};

TEST_F(Sweep, CommandsLoseNothingWhenSomethingFails) {
    for (const Command &row : commands) {
        SCOPED_TRACE(std::string(row.family) + "/" + std::to_string(row.slot));
        nxapi::Answer answer;
        std::optional<std::vector<std::string>> whole;
        const auto act = [&] {
            answer = nxapi::call(row.family, row.slot, row.request);
            vap::advance(60);  // worker threads come to their end
            if (!whole && answer.response) {
                whole = sections(vap::Json::parse(*answer.response));
            }
        };
        const auto runs = sweep(act, [&](Need need, bool passed) {
            EXPECT_EQ(answer.result == 0, answer.response.has_value());
            if (answer.response) {
                const vap::Json response = vap::Json::parse(*answer.response);
                expect_part_of(*whole, response);
                if (passed || need == Need::own_memory) {
                    EXPECT_EQ(response["resp_code"], passed ? 0 : row.without_memory);
                }
            }
            EXPECT_TRUE(!passed || answer.response);
            if (*row.upload != '\0' && passed) {
                EXPECT_THAT(effects(), Contains(::testing::StartsWith(row.upload)));
            }
        });
        EXPECT_GE(runs.at(Need::json_memory), row.allocations);
        EXPECT_GE(runs.at(Need::upload), *row.upload != '\0' ? 2 : 1);
    }
}

int watch_and_stop() {
    if (start_poll_fn(0, NX_POLL_READ, nullptr) != 0) {
        return -1;
    }
    return stop_poll_fn(pitems.next);
}

TEST_F(Sweep, UploadsAndStartUpLoseNothingWhenSomethingFails) {
    int minute = 0;
    struct Upload {
        const char *name;
        std::function<int()> make;
        int runs; /**< at least as many, of all kinds */
    } const rows[] = {
        {"identity", set_basic_info, 5},
        {"binding", set_bind_info, 20},
        {"image path",
         [] {
             set_upgrade_path_info();
             vap::advance(60);
             return 0;
         },
         5},
        {"management mode", norvex_mode_change_upload, 9},
        {"configuration", norvex_config_upload, 9},
        {"configuration request", request_config_upload, 12},
        {"running log",
         [] {
             running_log_upload("norvex.log.door opened");
             return 0;
         },
         4},
        {"alarm",
         [] {
             vap::advance(601);  // the time between two
             return api_alarm_upload();
         },
         10},
        {"system log",
         [&] {
             const std::string time = "2024-01-01 00:" + std::to_string(++minute);
             vap::patch_hardware({{"syslog", {{{"time", time}, {"type", 1}, {"event", "e"}}}}});
             return sys_log_upload();
         },
         15},
        {"descriptor of the library", watch_and_stop, 5},
        {"topology",
         [] {
             norvex_topo_exc_start();
             vap::advance(60);
             return 0;
         },
         20},
    };
    for (const Upload &row : rows) {
        SCOPED_TRACE(row.name);
        int result = 0;
        const auto runs =
            sweep([&] { result = row.make(); },
                  [&](Need, bool passed) { EXPECT_TRUE(!passed || result == 0) << result; });
        int all = 0;
        for (const auto &[need, count] : runs) {
            all += count;
        }
        EXPECT_GE(all, row.runs);
    }
}

}  // namespace
