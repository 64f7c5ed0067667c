/**
 * Every command and every upload, with each thing that it asks for refused once: the
 * memory of its JSON, its own memory, each call of the device, each upload. Nothing
 * crashes, nothing is lost, no upload or message to the topology module is half a
 * document, and an answer that leaves carries its verdict behind the sections that came
 * about.
 */
#include <algorithm>
#include <atomic>
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
using vap::Json;

int own_allocations = 0;
int failing_own_allocation = 0; /**< 0: none */
std::atomic<int> live_own_allocations = 0;
const poll_link *stopped_item = nullptr;
bool was_poisoned = false;

bool own_memory_ends() {
    return failing_own_allocation > 0 && ++own_allocations == failing_own_allocation;
}

void *counted(void *memory) {
    live_own_allocations += memory != nullptr;
    return memory;
}

}  // namespace

// The linker leads the calls of the agent's objects here.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *memory);
void *__wrap_malloc(size_t size) {
    return counted(own_memory_ends() ? nullptr : __real_malloc(size));
}
void *__wrap_calloc(size_t count, size_t size) {
    return counted(own_memory_ends() ? nullptr : __real_calloc(count, size));
}
void __wrap_free(void *memory) {
    live_own_allocations -= memory != nullptr;
    if (memory != nullptr && memory == stopped_item) {
        was_poisoned = reinterpret_cast<intptr_t>(stopped_item->next) == 1 &&
                       reinterpret_cast<intptr_t>(stopped_item->prev) == 2;
    }
    __real_free(memory);
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

/** The names of a document's members, at every depth and in order. */
Json shape(Json document) {
    if (!document.is_structured()) {
        return nullptr;
    }
    for (Json &member : document) {
        member = shape(member);
    }
    return document;
}

/** What went to the cloud and to the topology module since the journal began: the call,
 *  for the module its command, and the document's shape; of a list, which may be shorter
 *  than it was, each record for itself. */
std::vector<std::string> documents() {
    std::vector<std::string> found;
    for (const Json &line : vap::journal()) {
        const std::string call = line["op"];
        const Json &args = line["args"];
        const bool is_upload = call.starts_with("nx_api_") || call == "dev_upgrade_notice";
        // The text of the identity is not the agent's but the library's.
        if (call == "holymsg_publish" || (is_upload && call != "nx_api_set_basic_info")) {
            const Json document = Json::parse(args.back().get<std::string>(), nullptr, false);
            for (const Json &part : document.is_array() ? document : Json::array({document})) {
                found.push_back(call + (args.size() > 1 ? args[1].dump() : "") +
                                shape(part).dump());
            }
        }
    }
    return found;
}

/** True when `part` is `whole`, at any depth with members left out or arrays shorter. */
bool is_part(const Json &whole, const Json &part) {
    if (whole.is_array() && part.is_array()) {
        return part.size() <= whole.size() &&
               std::equal(part.begin(), part.end(), whole.begin(),
                          [](const Json &p, const Json &w) { return is_part(w, p); });
    }
    if (!whole.is_object() || !part.is_object()) {
        return !whole.is_structured() && !part.is_structured();
    }
    auto at = whole.begin();
    for (const auto &[name, value] : part.items()) {
        while (at != whole.end() && at.key() != name) {
            ++at;
        }
        if (at == whole.end() || !is_part(*at++, value)) {
            return false;
        }
    }
    return true;
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
        vap::patch_hardware(Json::parse(R"({
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
        act();  // what is opened or kept once and stays
        const std::vector<std::string> whole = documents();
        vap::clear_journal();
        const int live_own = live_own_allocations;
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
                EXPECT_EQ(live_own_allocations, live_own);
                if (need == Need::json_memory || need == Need::own_memory) {
                    EXPECT_THAT(documents(), ::testing::IsSubsetOf(whole));
                }
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

/** True when `part` has the objects and arrays of `whole` down to a depth. */
bool has_sections(const Json &whole, const Json &part, int depth) {
    return depth == 0 || std::ranges::all_of(whole.items(), [&](const auto &member) {
               return !whole.is_object() || !member.value().is_structured() ||
                      (part.contains(member.key()) &&
                       has_sections(member.value(), part[member.key()], depth - 1));
           });
}

/** A failed command keeps the sections up to its failure; one that succeeds has all of
 *  them, though not all that stands in them. */
void expect_part_of(const Json &whole, const Json &answer, int depth) {
    EXPECT_TRUE(is_part(whole, answer)) << answer;
    ASSERT_TRUE(answer.contains("resp_code")) << answer;
    if (answer["resp_code"] != -1) {
        EXPECT_TRUE(has_sections(whole, answer, depth)) << answer;
        return;
    }
    auto at = whole.begin();
    for (const auto &section : answer.items()) {
        EXPECT_TRUE(section.key() == "resp_code" || section.key() == at++.key()) << answer;
    }
}

struct Command {
    const char *family;
    int slot;
    const char *request;
    int allocations;         /**< at least as many; the row does what it is there for */
    const char *effect = ""; /**< what else shows that it ran: how an effect begins */
    int without_memory = 0;  /**< worst result when memory of the agent's own is refused */
    int depth = 1;           /**< of the sections that it succeeds with or not at all */
};

constexpr Command commands[] = {
    {"cloud", 0, R"({"cloud_id": "c", "project_id": 7})", 15, "SetValue nx.project.id 7"},
    {"cloud", 1, "", 4, "SetValue nx.bind_status 0"},
    {"cloud", 3, R"({"cloud_status": 0})", 6, "SetValue nx.manage.status"},
    {"cloud", 4, R"({"cloud_id": "c"})", 8, "SetValue nx.cloud.id c"},
    {"dev", 0, "", 100},
    {"dev", 1, "", 30, "", 0, 2},
    {"dev", 2, "", 300},
    {"dev", 3, R"({"timestamp": 1767225600, "time_array": [{"mode": 1, "timestamp": 5}]})", 15,
     "updaet_local_wireless_timestamp"},
    {"dev", 4, R"({"wireless": {"timestamp": 5, "wireless_config": {"radio1": [{"ssidenable": 1}]},
                   "radio_config": {"rf_rule": [{"radioenable": 1}]},
                   "radio_optimize": {"channel_1": 6}}, "maint": {"mainetmode": 0}})",
     30, "SetValue sys.schedulereboot.enable 0"},
    {"dev", 5, "", 4, "systool_sys_handle 0"},
    {"dev", 6, R"({"mainetmode": 2, "cycle_restart": {"timeval": 720}})", 8,
     "SetValue sys.schedulereboot.interval 720"},
    {"dev", 7, R"([{"mac": "02:57:00:00:00:01"}])", 6, "sta_kickoff 02:57", -1},
    {"dev", 8, R"({"length": 100})", 5, "flash_upgradefw_ap /tmp/image"},
    {"dev", 9, "", 4, "systool_sys_handle 2"},
    {"dev", 19, "", 50, "", 0, 4},
    {"dev", 20, R"({"server_ip": 3232235777, "server_port": 80})", 15, "holymsg_publish"},
    {"dev", 23, R"({"op": 1})", 5, "SetValue nx.located 1"},
    {"dev", 24, R"({"size": 100, "url": "http://127.0.0.1/i"})", 10, "dev_upgrade_notice", -1},
    // An address that never reaches the shell: the notice of the failure is sent.
    {"dev", 24, R"({"size": 100, "url": "http://x/;y"})", 10, "dev_upgrade_notice", -1},
    {"dev", 26, R"({"copy_sn": "S2"})", 6, "nx_api_duplicate_config_upload", -1},
    {"net", 0, "", 4},
    {"net", 4, "", 15, "nx_api_net_check_back"},
    {"wlan", 0, R"({"timestamp": 5, "radio1": [{"ssidenable": 1, "ssid": "a", "vlan": "20"}]})", 15,
     "SetValue wl2g.ssid0.ssid a"},
    {"wlan", 1, R"({"rf_optimize": {"channel_1": 6}})", 10, "nx_api_radio_optimiza_back"},
    {"wlan", 2, R"({"rf_rule": [{"channel": 6}, {"channel": 36}]})", 10,
     "SetValue wl5g.public.rssi_max"},
    {"wlan", 3, "", 100},
    // Replaces the configuration, so it comes last.
    {"cloud", 2, "#The word of \"Default\" must not be removed\nDefault\nap.apname=ZX-A5V1.0\n", 4,
     "systool_file_handle"},
};

TEST_F(Sweep, CommandsLoseNothingWhenSomethingFails) {
    for (const Command &row : commands) {
        SCOPED_TRACE(std::string(row.family) + "/" + std::to_string(row.slot));
        nxapi::Answer answer;
        std::optional<Json> whole;
        const auto act = [&] {
            answer = nxapi::call(row.family, row.slot, row.request);
            vap::advance(60);  // worker threads come to their end
            if (!whole && answer.response) {
                whole = Json::parse(*answer.response);
            }
        };
        int worst = 0;
        const auto runs = sweep(act, [&](Need need, bool passed) {
            EXPECT_EQ(answer.result == 0, answer.response.has_value());
            if (answer.response) {
                const Json response = Json::parse(*answer.response);
                expect_part_of(*whole, response, row.depth);
                EXPECT_TRUE(!passed || response["resp_code"] == 0);
                if (need == Need::own_memory) {
                    worst = std::min(worst, response["resp_code"].get<int>());
                }
            }
            EXPECT_TRUE(!passed || answer.response);
            // A device that was refused something may not be the same afterwards.
            if (*row.effect != '\0' && passed && need == Need::json_memory) {
                EXPECT_THAT(effects(), Contains(::testing::StartsWith(row.effect)));
            }
        });
        EXPECT_EQ(worst, row.without_memory);
        EXPECT_GE(runs.at(Need::json_memory), row.allocations);
        const bool uploads = std::string(row.effect).find("nx_api_") == 0;
        EXPECT_GE(runs.at(Need::upload), uploads ? 2 : 1);
    }
}

/** A step that starts a thread, or has no result. */
int done(void (*step)()) {
    step();
    vap::advance(60);
    return 0;
}

int watch_and_stop() {
    if (start_poll_fn(0, NX_POLL_READ, nullptr) != 0) {
        return -1;
    }
    was_poisoned = false;
    stopped_item = pitems.next;
    stop_poll_fn(pitems.next);
    return was_poisoned ? 0 : -1;
}

TEST_F(Sweep, UploadsAndStartUpLoseNothingWhenSomethingFails) {
    for (int beat = 0; beat < 9; ++beat) {  // from now on each alarm is of both resources
        api_alarm_upload();
    }
    int minute = 0;
    struct Upload {
        const char *name;
        std::function<int()> make;
        int runs; /**< at least as many, of all kinds */
    } const rows[] = {
        {"identity", set_basic_info, 5},
        {"binding", set_bind_info, 20},
        {"image path", [] { return done(set_upgrade_path_info); }, 5},
        {"management mode", norvex_mode_change_upload, 9},
        {"configuration", norvex_config_upload, 9},
        {"configuration request", request_config_upload, 12},
        {"running log", [] { return done([] { running_log_upload("norvex.log.door"); }); }, 4},
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
        {"topology", [] { return done(norvex_topo_exc_start); }, 20},
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
