#include "fuzz/support.h"

#include <cjson/cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/cloud_api.h"
#include "include/json.h"
#include "include/trace.h"
#include "net/net_api.h"
#include "nxapi/local.h"
#include "ops/nx_dev_api.h"
#include "virtual/device/machine.h"
#include "wireless/wireless_api.h"

namespace fuzz {
namespace {

constexpr const char *ping_output =
    "PING 192.0.2.1 (192.0.2.1): 32 data bytes\n"
    "40 bytes from 192.0.2.1: seq=0 ttl=64 time=8.200 ms\n"
    "\n--- 192.0.2.1 ping statistics ---\n1 packets transmitted, 1 packets received\n";

/** Something in every report; nothing that takes real time. */
constexpr const char *hardware = R"({
    "discovery": "absent",
    "system": {"cpu": 95, "rom": 95},
    "arp": {"02:57:00:00:00:09": "192.168.188.9"},
    "stations": {
        "02:57:00:00:00:01": {"band": 24, "ssid": 0, "ip": "192.168.188.101", "since": -50},
        "02:57:00:00:00:02": {"band": 5, "ssid": 0, "ip": "192.168.188.102", "since": -50}},
    "syslog": [{"time": "2026-01-01 00:00:00", "type": 1, "event": "link up"}]})";

constexpr std::pair<const char *, const char *> settings[] = {
    {"nx.manage.en", "1"},      {"nx.manage.mode", "1"},      {"wl.identifyOS_en", "1"},
    {"wl.0.vlan.enable", "1"},  {"qvlan_mode_enable", "1"},   {"sys.schedulereboot.type", "1"},
    {"lan.type", "0"},          {"lan.gw", "192.168.188.1"},  {"wl2g.ssid1.enable", "1"},
    {"wl5g.ssid1.enable", "1"}, {"qvlan.truck.port", "1,1,0"}};

std::string printed = ping_output;

[[noreturn]] void fail(const std::string &name, const char *what) {
    fprintf(stderr, "%s: %s\n", name.c_str(), what);
    abort();
}

/** Uploads that are JSON documents. */
constexpr const char *documents[] = {"nx_api_bind_info_upload", "nx_api_manage_info_upload",
                                     "nx_api_alarm_upload",     "nx_api_sys_log_upload",
                                     "nx_api_net_check_back",   "nx_api_radio_optimiza_back",
                                     "dev_upgrade_notice"};

/** Takes what the agent uploads, as the cloud does. */
int take(const nxapi::Upload &upload) {
    const bool is_document = std::ranges::find(documents, upload.call) != std::end(documents);
    if (is_document && !Json(cJSON_Parse(upload.data.c_str()))) {
        fail(upload.call, "an upload that is no JSON");
    }
    return 0;
}

/** A folder in memory where there is one: the target writes to it all the time. */
class Device {
  public:
    Device() {
        const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/norvex-fuzz-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            fail(pattern, "cannot be made");
        }
        path_ = pattern;
        nx_debug_state = 1;
        vap::create_device(path_ / "ap", {.serial = "FUZZ00000001"});
        vap::open_device(path_ / "ap", {.time = vap::Time::manual, .restarts_process = false});
        vap::patch_hardware(vap::Json::parse(hardware));
        for (const auto &[key, value] : settings) {
            vap::config_set(key, value);
        }
        configuration_ = *vap::machine()->config.committed();
        // Both work, without the shell and the file that would take most of the time.
        vap::fail("doSystemCmd", 1, -1, 0);
        vap::fail("CommitCfm", 1, -1, 1);
        nxapi::begin_local(take);
        cloud_api();
        dev_api();
        net_api();
        wireless_api();
    }
    ~Device() {
        vap::close_device();
        nxapi::end_local();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    void put_back() const {
        vap::machine()->config.replace(configuration_);
        vap::clear_journal();
    }

  private:
    std::filesystem::path path_;
    vap::Values configuration_;
};

}  // namespace

void device() {
    static const Device device;
    device.put_back();
    printed = ping_output;
}

std::string text_of(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    return text.c_str();
}

Input input_of(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = std::min(text.find('\n'), text.size());
    return {text.substr(0, end), text.substr(std::min(end + 1, text.size()))};
}

void command(const std::string &name, const std::string &request) {
    const size_t slash = std::min(name.find('/'), name.size());
    const int slot = slash < name.size() ? atoi(name.c_str() + slash + 1) : -1;
    const nxapi::Answer answer = nxapi::call(name.substr(0, slash), slot, request.c_str());
    vap::advance(60);
    if (answer.response.has_value() != (answer.result != -1)) {
        fail(name, "an answer without a response, or the other way round");
    }
    if (answer.response) {
        const Json response(cJSON_Parse(answer.response->c_str()));
        if (!cJSON_IsNumber(cJSON_GetObjectItem(response.get(), "resp_code"))) {
            fail(name, "a response without its verdict");
        }
    }
}

void write_file(const std::string &device_path, const std::string &text) {
    const std::filesystem::path path = vap::host_path(device_path);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

void shell_prints(const std::string &text) {
    printed = text;
}

}  // namespace fuzz

// The linker leads the agent's calls of popen and pclose here.
extern "C" {

FILE *__wrap_popen(const char *, const char *) {
    return fuzz::printed.empty() ? fopen("/dev/null", "re")
                                 : fmemopen(fuzz::printed.data(), fuzz::printed.size(), "r");
}

int __wrap_pclose(FILE *stream) {
    return fclose(stream);
}

}  // extern "C"
