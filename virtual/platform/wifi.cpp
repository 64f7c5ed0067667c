/* Radios and interface names: platform/wifi.h without the stations. */
#include "platform/wifi.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "platform/apmib.h"
#include "virtual/hardware/equipment.h"
#include "virtual/platform/field.h"

namespace vap {
namespace {

/** A text that stays for the life of the process. */
const char *lasting(const std::string &text) {
    static std::mutex &mutex = *new std::mutex;
    static std::set<std::string> &texts = *new std::set<std::string>;
    const std::lock_guard lock(mutex);
    return texts.insert(text).first->c_str();
}

}  // namespace

bool bssid_of(int id, uint8_t out[6]) {
    int slot = -1;
    if (id == APMIB_BSSID_SLOT0) {
        slot = 0;
    } else if (id >= APMIB_BSSID_SLOT1 && id < APMIB_BSSID_SLOT1 + 4) {
        slot = id - APMIB_BSSID_SLOT1 + 1;
    } else if (id >= APMIB_BSSID_SLOT5 && id < APMIB_BSSID_SLOT5 + 3) {
        slot = id - APMIB_BSSID_SLOT5 + 5;
    }
    const EquipmentLock equipment = equipment_now();
    if (slot < 0 || slot >= static_cast<int>(equipment->bssids.size()) ||
        !equipment->bssids[slot]) {
        return false;
    }
    std::ranges::copy(*equipment->bssids[slot], out);
    return true;
}

}  // namespace vap

using namespace vap;

extern "C" {

int wifi_get_status_list(int band_code, int index, wifi_radio_status *status) {
    if (const auto fault = due_fault("wifi_get_status_list", -1)) {
        return static_cast<int>(*fault);
    }
    const int radio = radio_of_band(band_code);
    if (radio >= 0 && status != nullptr) {
        const EquipmentLock equipment = equipment_now();
        if (const std::optional<Radio> &found = equipment->radios[radio]) {
            fill(status->bssid, found->upstream);
            fill(status->channel, found->channel);
            fill(status->bandwidth, found->bandwidth);
            return 0;
        }
    }
    return refuse("wifi_get_status_list", {band_code, index}, -1);
}

int wifi_do_scan(const char *ifname, int *count, wifi_scan_result *results, int max) {
    if (const auto fault = due_fault("wifi_do_scan", -1)) {
        return static_cast<int>(*fault);
    }
    if (ifname != nullptr && count != nullptr && results != nullptr && max >= 0) {
        const EquipmentLock equipment = equipment_now();
        const int radio = equipment->radio_of(ifname);
        if (radio >= 0 && equipment->radios[radio]->scan) {
            const std::vector<Neighbour> &found = *equipment->radios[radio]->scan;
            *count = std::min(max, static_cast<int>(found.size()));
            for (int i = 0; i < *count; i++) {
                fill(results[i].ssid, found[i].ssid);
                fill(results[i].bssid, found[i].bssid);
                fill(results[i].channel, found[i].channel);
                fill(results[i].signal, found[i].signal);
                fill(results[i].bandwidth, found[i].bandwidth);
            }
            return 0;
        }
    }
    return refuse("wifi_do_scan", {text_arg(ifname), max}, -1);
}

int get_wifi_ifname(int band_code, const char *mode, int index, char *name) {
    if (const auto fault = due_fault("get_wifi_ifname", -1)) {
        return static_cast<int>(*fault);
    }
    const int radio = radio_of_band(band_code);
    if (radio >= 0 && index >= 0 && index < bands[radio].slots && name != nullptr) {
        const EquipmentLock equipment = equipment_now();
        if (const std::optional<Radio> &found = equipment->radios[radio]) {
            const bool client = index == 0 && mode != nullptr && strcmp(mode, "apclient") == 0;
            const std::string text =
                client ? found->interface + "-vxd" : ssid_interface(found->interface, index);
            snprintf(name, WIFI_IFNAME_MAX, "%s", text.c_str());
            return 0;
        }
    }
    return refuse("get_wifi_ifname", {band_code, text_arg(mode), index}, -1);
}

const char *get_eth_name(int index) {
    constexpr std::array<std::pair<int, NameOf>, 4> interfaces{{
        {ETH_NAME_LAN_UPLINK, lan_uplink_name},
        {ETH_NAME_WAN_UPLINK, wan_uplink_name},
        {ETH_NAME_RADIO_2G, radio_2g_name},
        {ETH_NAME_RADIO_5G, radio_5g_name},
    }};
    const auto row = std::ranges::find(interfaces, index, &std::pair<int, NameOf>::first);
    if (due_fault("get_eth_name", 0) || row == interfaces.end()) {
        return "";
    }
    return lasting(equipment_now()->names[row->second]);
}

const char *ifaddrs_get_lan_ifname(void) {
    return due_fault("ifaddrs_get_lan_ifname", 0) ? "" : lasting(equipment_now()->names[lan_name]);
}

}  // extern "C"
