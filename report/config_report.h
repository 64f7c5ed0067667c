/**
 * The configuration as the cloud is told it.
 */
#ifndef REPORT_CONFIG_REPORT_H
#define REPORT_CONFIG_REPORT_H

#include <cjson/cJSON.h>

/** Adds the reboot schedule. -1: out of memory; what was added stays. */
int maint_data_get(cJSON *object);

/** Adds timestamp, SSIDs and radio rules. -1: out of memory. */
int wireless_data_get(cJSON *object);

/** Appends the configuration of one SSID slot; `stem` is "wl2g.ssid" or
 *  "wl5g.ssid". Always 0. */
int ssid_config_get(int slot, cJSON *array, const char *stem);

/** Stamp of the wireless configuration, seconds; 0 when none applies. */
int wireless_timestamp_get();

/** Adds "uprate" and "downrate": summed byte counters of the Wi-Fi interfaces,
 *  in kibibytes, as texts with two decimals. Always 0. */
int wireless_info_get(cJSON *object);

#endif
