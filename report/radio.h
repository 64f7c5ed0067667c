/**
 * What the radios are doing and what they hear.
 */
#ifndef REPORT_RADIO_H
#define REPORT_RADIO_H

#include <cjson/cJSON.h>

/** Appends one radio rule for each band, 2.4 GHz first. -1: out of memory. */
int rf_rule_get(cJSON *array);

/** Scans with each enabled radio and appends one object for each result, an
 *  empty one for a hidden network. -1: a scan failed or found nothing, or out of
 *  memory; what was appended stays. */
int neighbor_entry_get(cJSON *array);

/** Appends BSSID, SSID and band of all 12 SSID slots. -1: out of memory. */
int ssid_info_get(cJSON *array);

#endif
