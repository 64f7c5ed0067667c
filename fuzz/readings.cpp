/**
 * What the agent reads from the device besides its configuration: files, outputs of
 * shell commands, and records of the drivers. The first line names the row of the
 * table below, the rest is what is read.
 */
#include <cstdio>
#include <cstring>
#include <span>

#include "alarm/alarm.h"
#include "cloud/config_file.h"
#include "fuzz/support.h"
#include "include/file.h"
#include "include/json.h"
#include "net/load_checks.h"
#include "net/reachability.h"
#include "platform/nxapi.h"
#include "platform/systool.h"
#include "platform/wifi.h"
#include "report/dev_status.h"
#include "topo/discovery.h"
#include "topo/iwconfig.h"
#include "virtual/device/device.h"

namespace {

constexpr const char *counters_path = "/proc/rtl865x/asicCounter";

/** Bytes that stand for records of a driver while a row is at work. */
std::string records;
bool drivers_are_fuzzed = false;

template <typename Record>
int fill(Record *list, int max) {
    const size_t count =
        std::min(records.size() / sizeof(Record), static_cast<size_t>(std::max(max, 0)));
    memcpy(static_cast<void *>(list), records.data(), count * sizeof(Record));
    return static_cast<int>(count);
}

/** A driver ends its texts. */
template <size_t N>
void end(char (&text)[N]) {
    text[N - 1] = '\0';
}

int end_stations(wifi_sta *stations, int count) {
    for (wifi_sta &station : std::span(stations, static_cast<size_t>(count))) {
        end(station.ifname);
        end(station.mac);
        end(station.ip);
        end(station.online_time);
        end(station.signal);
    }
    return count;
}

using Entrance = void (*)(const std::string &text);

void file_topo(const std::string &text) {
    fuzz::write_file("/tmp/file_topo", text);
    fuzz::command("dev/19");
}

void wirestation(const std::string &text) {
    fuzz::write_file("/tmp/wirestation", text);
    char found[64] = "";
    int number = 0;
    wirestation_lookup("02:57:00:00:00:01", found, sizeof found, &number);
}

void lan_ini(const std::string &text) {
    fuzz::write_file("/etc/lan.ini", text);
    char ip[18] = "";
    get_dhcp_ip(ip);
    fuzz::command("dev/0");
    const Json list = json_array();
    check_ping_gate(list.get());
}

void lldpd_write(const std::string &text) {
    fuzz::write_file("/etc/lldpd.write", text);
    const Json object = json_object();
    front_dev_get(object.get());
}

void counters(const std::string &text) {
    fuzz::write_file(counters_path, text);
    fuzz::command("dev/19");
}

void exported(const std::string &text) {
    fuzz::write_file("/tmp/config.export", text);
    const ConfigExport file{"/tmp/config.export"};
    upload_config(file, config_body_size(file), "head", nx_api_config_upload);
}

void image(const std::string &text) {
    fuzz::write_file("/tmp/image", text);
    const std::string size = std::to_string(text.size());
    fuzz::command("dev/8", R"({"length": )" + size + "}");
    fuzz::command("dev/24", R"({"url": "http://127.0.0.1/x", "size": )" + size + "}");
}

void ping(const std::string &text) {
    fuzz::shell_prints(text);
    const Json list = json_array();
    check_ping_gate(list.get());
    check_ping_norvex(list.get());
}

void channel_use(const std::string &text) {
    fuzz::shell_prints(text);
    check_channel_usage(24);
}

void iwconfig(const std::string &text) {
    fuzz::shell_prints(text);
    int rate = 0;
    iwconfig_get_ifname_rate("wlan1", &rate);
}

void driver(const std::string &text, const char *command) {
    records = text;
    drivers_are_fuzzed = true;
    fuzz::command(command);
    drivers_are_fuzzed = false;
}

void status(const std::string &text) {
    driver(text, "dev/0");
}
void radio(const std::string &text) {
    driver(text, "wlan/3");
}

void syslog(const std::string &text) {
    records = text;
    drivers_are_fuzzed = true;
    sys_log_upload();
    drivers_are_fuzzed = false;
}

struct Row {
    const char *name;
    Entrance enter;
};
constexpr Row rows[] = {
    {"file_topo", file_topo},
    {"wirestation", wirestation},
    {"lan.ini", lan_ini},
    {"lldpd.write", lldpd_write},
    {"counters", counters},
    {"exported", exported},
    {"image", image},
    {"ping", ping},
    {"channel use", channel_use},
    {"iwconfig", iwconfig},
    {"status", status},
    {"radio", radio},
    {"syslog", syslog},
};

}  // namespace

// The linker leads these calls of the agent here.
extern "C" {

FILE *__real_fopen(const char *path, const char *mode);
int __real_wifi_get_client_lists(wifi_sta *stations, const char *ifname, int max);
int __real_wifi_do_scan(const char *ifname, int *count, wifi_scan_result *results, int max);
int __real_file_syslog_get_lists(syslog_record *list, int first, int *count, int max);

/** The switch shows what was written to its file, not the virtual one's numbers. */
FILE *__wrap_fopen(const char *path, const char *mode) {
    const bool shown = strcmp(path, counters_path) == 0;
    return __real_fopen(shown ? vap::host_path(path).c_str() : path, mode);
}

int __wrap_wifi_get_client_lists(wifi_sta *stations, const char *ifname, int max) {
    return drivers_are_fuzzed ? end_stations(stations, fill(stations, max))
                              : __real_wifi_get_client_lists(stations, ifname, max);
}

int __wrap_wifi_do_scan(const char *ifname, int *count, wifi_scan_result *results, int max) {
    if (!drivers_are_fuzzed) {
        return __real_wifi_do_scan(ifname, count, results, max);
    }
    *count = fill(results, max);
    for (wifi_scan_result &result : std::span(results, static_cast<size_t>(*count))) {
        end(result.ssid);
        end(result.bssid);
        end(result.channel);
        end(result.signal);
        end(result.bandwidth);
    }
    return 0;
}

int __wrap_file_syslog_get_lists(syslog_record *list, int first, int *count, int max) {
    if (!drivers_are_fuzzed) {
        return __real_file_syslog_get_lists(list, first, count, max);
    }
    *count = fill(list, max);  // its texts need not be ended
    return 0;
}

}  // extern "C"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::Input input = fuzz::input_of(data, size);
    fuzz::device();
    for (const Row &row : rows) {
        if (input.head == row.name) {
            row.enter(input.body);
        }
    }
    return 0;
}
