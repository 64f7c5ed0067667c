/**
 * SSIDs, which come as a command or with a download.
 */
#ifndef WIRELESS_SSID_APPLY_H
#define WIRELESS_SSID_APPLY_H

#include <cjson/cJSON.h>

#include "store.h"

/** How one path sets SSIDs. */
struct SsidRules {
    const char *function;        /**< stands in its trace lines */
    bool traces_place_twice;     /**< its trace lines hold function and line again */
    bool type_comes_last;        /**< "type" is the last key, otherwise it follows "ssid" */
    bool isolates_stations;      /**< "client_quarantine" is applied */
    bool vlan_zero_resets;       /**< "vlan" 0 means the default VLAN, otherwise no change */
    bool keeps_vlan_backup;      /**< "vlanid_bk" is set with "vlanid" */
    bool follows_vlan_use;       /**< VLANs are switched on or off before each commit */
    bool stops_at_failed_commit; /**< with -1; otherwise the next radio follows */
};

// All differences between the paths but the refusal in local management and what
// leads to a restart of the device.
inline constexpr SsidRules ssid_command{
    .function = "wlan_config_set",
    .traces_place_twice = false,
    .type_comes_last = true,
    .isolates_stations = true,
    .vlan_zero_resets = true,
    .keeps_vlan_backup = false,
    .follows_vlan_use = true,
    .stops_at_failed_commit = false,
};
inline constexpr SsidRules ssid_download{
    .function = "config_wifi_wireless_parse",
    .traces_place_twice = true,
    .type_comes_last = false,
    .isolates_stations = false,
    .vlan_zero_resets = false,
    .keeps_vlan_backup = true,
    .follows_vlan_use = false,
    .stops_at_failed_commit = true,
};

/** What is carried from SSID to SSID and from radio to radio in one call. */
struct SsidRun {
    /** "wl.0.vlan.enable" as it was at the start of the call. */
    const StoreValue vlan_enable = store_get("wl.0.vlan.enable");
    const char *cipher = ""; /**< of the last SSID that named one */
    bool vlan_used = false;
    bool vlan_changed = false;
};

/** Applies the arrays "radio1" and "radio2" of `config`, a commit and a Wi-Fi
 *  restart for each. 0; -1: a commit failed on a path that stops there. */
int ssid_apply(const cJSON *config, const SsidRules &rules, SsidRun &run);

#endif
