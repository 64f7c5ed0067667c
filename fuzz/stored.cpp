/**
 * Values of the configuration store, a "key=value" a line in the form of the device's
 * `config` file, and what reads them. The first line names the readers.
 */
#include <sstream>

#include "alarm/alarm.h"
#include "cloud/identity.h"
#include "fuzz/support.h"
#include "ops/stations.h"
#include "platform/apmib.h"
#include "topo/daemons.h"
#include "topo/server.h"
#include "virtual/folder/values.h"

namespace {

void status() {
    fuzz::command("dev/0");
    fuzz::command("dev/1");
    fuzz::command("wlan/3");
}

void configuration() {
    fuzz::command("dev/2");
    fuzz::command("dev/19");
    fuzz::command("net/4");
}

void start() {
    set_basic_info();
    set_bind_info();
    norvex_add_timer();
    nx_start_lldpd();
    ntdd_set_valid_ifname();
    char stations[256] = "";
    getmacFilterMaclists("wl2g.ssid0.", stations, sizeof stations);
}

/** Commands whose way depends on what is stored. */
void commands() {
    fuzz::command("cloud/0", R"({"project_id": 7})");
    fuzz::command("dev/3",
                  R"({"timestamp": 1767225600, "time_array": [{"mode": 1, "timestamp": 5}]})");
    fuzz::command("dev/4", R"({"wireless": {"timestamp": 5,
        "wireless_config": {"radio1": [{"ssid": "a", "ssidenable": 1, "vlan": "20"}]},
        "radio_config": {"rf_rule": [{"channel": 6}]}, "radio_optimize": {"channel_1": 6}}})");
    fuzz::command("dev/23", R"({"op": 1})");
}

struct Readers {
    const char *name;
    void (*read)();
};
constexpr Readers readers[] = {
    {"status", status},
    {"configuration", configuration},
    {"start", start},
    {"commands", commands},
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::Input input = fuzz::input_of(data, size);
    fuzz::device();
    std::istringstream lines(input.body);
    for (std::string line; std::getline(lines, line);) {
        for (const auto &[key, value] : vap::parse_values(line).value_or(vap::Values())) {
            SetValue(key.c_str(), value.c_str());
        }
    }
    for (const Readers &row : readers) {
        if (input.head == row.name) {
            row.read();
        }
    }
    return 0;
}
