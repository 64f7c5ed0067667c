#include "bench/support/device.h"

#include <cstdio>
#include <string>

#include "virtual/vap.h"

namespace bench {
namespace {

/** Stations of both radios, spread over all their SSIDs, each in the ARP table. */
vap::Json crowd(int count) {
    vap::Json stations = vap::Json::object();
    for (int i = 0; i < 2 * count; ++i) {
        const bool fast = i >= count;
        char mac[18];
        char ip[16];
        snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", fast ? 1 : 0, i % count);
        snprintf(ip, sizeof ip, "10.0.%d.%d", fast ? 1 : 0, i % count);
        stations[mac] = {{"band", fast ? 5 : 24},
                         {"ssid", i % (fast ? 4 : 8)},
                         {"ip", ip},
                         {"signal", -40 - i % 40},
                         {"os", i % 14},
                         {"since", -1000 - i},
                         {"up", {{"bytes", 1000 * i}, {"rate", 1234 + i}}},
                         {"down", {{"bytes", 9000 * i}, {"rate", 98765 + i}}}};
    }
    return stations;
}

}  // namespace

Device::Device(int stations) {
    vap::create_device(folder_.path() / "ap", {.serial = "NXB0000000001"});
    vap::open_device(folder_.path() / "ap", {.time = vap::Time::manual, .restarts_process = false});
    // Local discovery is another program, whose answer is not the report's cost.
    vap::patch_hardware({{"stations", crowd(stations)}, {"discovery", "absent"}});
    vap::config_set("wl.identifyOS_en", "1");
    for (int slot = 0; slot < 8; ++slot) {
        for (const char *stem : {"wl2g.ssid", "wl5g.ssid"}) {
            vap::config_set(stem + std::to_string(slot) + ".enable", "1");
        }
    }
}

Device::~Device() {
    vap::close_device();
}

cJSON *rebuild(const cJSON *tree) {
    if (cJSON_IsString(tree)) {
        return cJSON_CreateString(tree->valuestring);
    }
    if (cJSON_IsNumber(tree)) {
        return cJSON_CreateNumber(tree->valuedouble);
    }
    const bool is_array = cJSON_IsArray(tree) != 0;
    cJSON *copy = is_array ? cJSON_CreateArray() : cJSON_CreateObject();
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, tree) {
        if (is_array) {
            cJSON_AddItemToArray(copy, rebuild(child));
        } else {
            cJSON_AddItemToObject(copy, child->string, rebuild(child));
        }
    }
    return copy;
}

}  // namespace bench
