/**
 * Commands of the dev family that report the device.
 */
#ifndef REPORT_UPLOADS_H
#define REPORT_UPLOADS_H

#include <cjson/cJSON.h>

/** Identity, running state, radios and clients. The result of the client list; -1
 *  when a section cannot be made. */
int status_upload(cJSON *request, cJSON *response);

/** Stations, bytes since the report before, and counters of the Wi-Fi interfaces. */
int statistic_upload(cJSON *request, cJSON *response);

/** Wireless configuration and reboot schedule. */
int config_upload(cJSON *request, cJSON *response);

#endif
