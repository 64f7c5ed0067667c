#include "topo/vlan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include "store.h"

namespace {

constexpr std::array fixed_keys{"qvlan.pvid", "manage.vlanid", "lan.0.vlanid", "lan.1.vlanid"};

/** VLANs of the SSIDs of a Wi-Fi interface; an SSID that is switched off counts
 *  as VLAN 0, none. */
struct BssVlans {
    const char *enable_format;
    const char *vlan_format;
    int slots;
};
constexpr std::array bss_vlans{
    BssVlans{"wlan1.%d_bss_enable", "wlan1.%d_bss_vlanid", 8},
    BssVlans{"wlan0.%d_bss_enable", "wlan0.%d_bss_vlanid", 4},
};

constexpr size_t ids_max = 16;

int slot_int(const char *format, int slot) {
    char key[limits::key_text];
    snprintf(key, sizeof key, format, slot);
    return store_int(key);
}

std::array<int, ids_max> collect_ids() {
    std::array<int, ids_max> ids{};
    auto next = ids.begin();
    for (const char *key : fixed_keys) {
        *next++ = store_int(key);
    }
    for (const BssVlans &bss : bss_vlans) {
        for (int slot = 0; slot < bss.slots; ++slot) {
            *next++ = slot_int(bss.enable_format, slot) == 1 ? slot_int(bss.vlan_format, slot) : 0;
        }
    }
    return ids;
}

}  // namespace

int get_trunk_vlan_id(VlanText &vlans) {
    if (store_int("wl.0.vlan.enable") == 0) {
        return 0;
    }
    auto ids = collect_ids();
    std::sort(ids.begin(), ids.end());
    const auto end = std::unique(ids.begin(), ids.end());
    size_t length = 0;
    for (auto id = ids.begin(); id != end; ++id) {
        if (*id != 0) {
            length += snprintf(vlans.text + length, sizeof vlans.text - length, "%s%d",
                               length == 0 ? "" : " ", *id);
        }
    }
    return 0;
}
