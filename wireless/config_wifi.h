/**
 * Wireless configuration that the cloud pushes with a download. Main thread.
 */
#ifndef WIRELESS_CONFIG_WIFI_H
#define WIRELESS_CONFIG_WIFI_H

#include <cjson/cJSON.h>

/** Applies "timestamp", "wireless_config", "radio_config" and "radio_optimize".
 *  Always 0. */
int config_wifi_parse(const cJSON *config);

/** Applies the SSIDs of "wireless_config"; restarts the device when its VLANs
 *  changed. 0; -1: a commit failed. */
int config_wifi_wireless_parse(const cJSON *wireless_config);

/** Applies the radio rules of "radio_config". 0; -1: there are none, or a commit
 *  failed. */
int config_wifi_radio_config_parse(const cJSON *radio_config);

/** Applies "radio_optimize". Always 0. */
int config_wifi_radio_optimiza_parse(const cJSON *optimize);

#endif
