/**
 * The wlan family of commands.
 */
#ifndef WIRELESS_WIRELESS_API_H
#define WIRELESS_WIRELESS_API_H

#include <cjson/cJSON.h>

/** Registers the family with the cloud library. 0, or -1. */
int wireless_api();

/** Sets SSIDs; restarts the device when a VLAN of one changed. -1: the device is
 *  managed locally. */
int wlan_config_set(cJSON *request, cJSON *response);

/** Sets channels and powers, and reports 40 seconds later. -1: no optimisation
 *  in the request, or the device is managed locally. */
int radio_opt_set(cJSON *request, cJSON *response);

/** Applies radio rules. -1: none in the request, or the device is managed
 *  locally. */
int radio_config_set(cJSON *request, cJSON *response);

/** Answers with what the radios do and hear. -1: out of memory. */
int radio_optimiza_upload(cJSON *request, cJSON *response);

#endif
