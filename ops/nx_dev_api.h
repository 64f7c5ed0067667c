/**
 * The dev family of commands.
 */
#ifndef OPS_NX_DEV_API_H
#define OPS_NX_DEV_API_H

#include <cjson/cJSON.h>

/** Registers the family with the cloud library. 0, or -1. */
int dev_api();

/** Takes the cloud's clock and answers which parts of the configuration differ.
 *  -1: no clock or no stamps in the request, and nothing was stored. */
int timestamp_download(cJSON *request, cJSON *response);

/** Applies what the cloud pushes after that. -1: the device is managed locally. */
int server_config_download(cJSON *request, cJSON *response);

/** Restarts the device; restores its factory settings. Always 0. */
int reboot_download(cJSON *request, cJSON *response);
int nx_restore(cJSON *request, cJSON *response);

/** Sets the schedule of restarts. Always 0. */
int auto_maint(cJSON *request, cJSON *response);

/** Operations on the device; see `nx_handler`. */
int force_off(cJSON *request, cJSON *response);
int nx_upgrade(cJSON *request, cJSON *response);
int dev_locate(cJSON *request, cJSON *response);
int dev_local_upgrade(cJSON *request, cJSON *response);
int dev_config_copy_upload(cJSON *request, cJSON *response);

#endif
