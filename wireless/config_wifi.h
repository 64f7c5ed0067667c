/**
 * Wireless configuration that the cloud pushes with a download.
 */
#ifndef WIRELESS_CONFIG_WIFI_H
#define WIRELESS_CONFIG_WIFI_H

#include <cjson/cJSON.h>

/** Applies "timestamp", "wireless_config", "radio_config" and "radio_optimize".
 *  Always 0. Main thread. */
int config_wifi_parse(const cJSON *config);

#endif
