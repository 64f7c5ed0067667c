/* What the heavy commands cost beyond parsing their requests and building and printing
 * their answers. */
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/support/device.h"
#include "bench/support/ratio.h"
#include "bench/support/share.h"
#include "bench/support/table.h"
#include "core/cloud_api.h"
#include "net/net_api.h"
#include "nxapi/local.h"
#include "nxapi/registry.h"
#include "ops/nx_dev_api.h"
#include "virtual/vap.h"
#include "wireless/wireless_api.h"

namespace {

thread_local long allocations = 0;

/** All allocations of this thread while `act` runs, the device's libraries' too. */
template <typename Act>
double allocations_of(Act act) {
    const long before = allocations;
    act();
    return static_cast<double>(allocations - before);
}

}  // namespace

// In front of the C library's, whose `free` takes what these give.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
void *realloc(void *memory, size_t size) {
    ++allocations;
    return __libc_realloc(memory, size);
}
}

namespace {

/** Keeps what the agent prints out of the table while it lives. */
class Silence {
  public:
    Silence() : before_(dup(STDOUT_FILENO)) {
        fflush(stdout);
        if (freopen("/dev/null", "w", stdout) == nullptr) {
            abort();
        }
    }
    ~Silence() {
        fflush(stdout);
        dup2(before_, STDOUT_FILENO);
        close(before_);
    }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

  private:
    int before_;
};

struct Command {
    const char *what;
    const char *family;
    size_t slot;
    std::string request;
    int times; /**< that one measurement runs it: short ones drown in the clock's own cost */
    const char *other_work; /**< what it does besides JSON, and may take its time */
};

/** Eight SSIDs of the 2.4 GHz radio and four of the other, with every member. */
std::string twelve_ssids() {
    const Json request = json_object();
    json_add_number(request.get(), "timestamp", 1700000001);
    for (const auto &[radio, count] : {std::pair("radio1", 8), std::pair("radio2", 4)}) {
        cJSON *ssids = json_add_named(request.get(), radio, json_array());
        for (int slot = 0; slot < count; ++slot) {
            cJSON *ssid = json_append(ssids, json_object());
            json_add_number(ssid, "ssididx", slot);
            json_add_string(ssid, "ssid", ("Harbour Cafe " + std::to_string(slot)).c_str());
            json_add_number(ssid, "ssidenable", 1);
            json_add_number(ssid, "hide", 0);
            json_add_number(ssid, "encrypt", 2);
            json_add_number(ssid, "security", 0);
            json_add_string(ssid, "passwd", "welcome-2024");
            json_add_number(ssid, "update_time", 1700000000);
            json_add_number(ssid, "max_conn", 32);
            json_add_number(ssid, "time_close", 1);
            json_add_string(ssid, "timeval", "22:00-06:00");
            json_add_number(ssid, "client_quarantine", 1);
            json_add_string(ssid, "vlan", "0");
        }
    }
    return json_print(request).get();
}

struct Result {
    bool answers = false;
    bench::Medians seconds{};
    double allocations = 0;
    double floor_allocations = 0;
    double device_share = 0; /**< of the time, inside the virtual access point */
};

Result measure(const Command &command) {
    const Silence silence;
    const size_t family = *nxapi::family_index(command.family);
    const char *request = command.request.c_str();
    const int length = static_cast<int>(command.request.size());
    const auto run = [&] {
        return nxapi::run_command(nxapi::registry(), family, command.slot, request, length);
    };
    const nxapi::Reply answer = run();
    if (answer.text == nullptr || strstr(answer.text, "\"resp_code\":\t0") == nullptr) {
        return {};
    }
    const Json tree(cJSON_Parse(answer.text));
    const auto floor = [&] {
        const Json parsed(cJSON_Parse(request));
        json_print(Json(bench::rebuild(tree.get())));
    };
    const auto often = [&](auto act) {
        return [&, act] {
            for (int i = 0; i < command.times; ++i) {
                act();
            }
        };
    };
    // A second between two reports, whose counters then have moved.
    const auto one_second = [] { vap::advance(1); };
    Result result{.answers = true, .seconds = bench::measure(often(run), often(floor), one_second)};
    result.allocations = allocations_of(run);
    result.floor_allocations = allocations_of(floor);
    result.device_share =
        bench::share_of_library(reinterpret_cast<const void *>(&vap::advance), often(run));
    return result;
}

void report(const Command &command, const Result &result, bench::Table &table) {
    const double work = result.seconds.work / command.times;
    const double floor = result.seconds.floor / command.times;
    const bool is_json = *command.other_work == '\0';
    table.add({.what = command.what,
               .norvex = work * (1 - result.device_share),
               .floor = floor,
               .goal = is_json ? bench::ratio_at_most(1.3) : bench::Goal{}});
    table.add(
        {.what = "  with the time in the device's libraries", .norvex = work, .floor = floor});
    table.add({.what = "  allocations, theirs too",
               .unit = bench::Unit::count,
               .norvex = result.allocations,
               .floor = result.floor_allocations});
    if (!is_json) {
        table.note(command.other_work);
    }
}

}  // namespace

int main() {
    const bench::Device device(64);
    nxapi::begin_local([](const nxapi::Upload &) { return 0; });
    cloud_api();
    dev_api();
    net_api();
    wireless_api();
    const Command commands[] = {
        {"wrapper, a command that does nothing", "net", 1, R"({"timestamp":1700000000})", 100, ""},
        {"status_upload, 128 stations", "dev", 0, "{}", 1, ""},
        {"config_upload, 12 SSIDs", "dev", 2, "{}", 1, ""},
        {"statistic_upload, 128 stations", "dev", 1, "{}", 1, ""},
        {"topo_info", "dev", 19, "{}", 1,
         "its work is not only JSON: it asks the topology module, reads counters and files"},
        {"wlan_config_set, 12 SSIDs", "wlan", 0, twelve_ssids(), 1,
         "its work is not JSON: it sets 146 keys, commits twice, restarts both radios"},
    };
    bench::Table table;
    for (const Command &command : commands) {
        const Result result = measure(command);
        if (!result.answers) {
            fprintf(stderr, "%s fails\n", command.what);
            return 1;
        }
        report(command, result, table);
    }
    nxapi::end_local();
    return table.status();
}
