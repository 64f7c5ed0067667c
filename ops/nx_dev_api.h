/**
 * The dev family of commands.
 */
#ifndef OPS_NX_DEV_API_H
#define OPS_NX_DEV_API_H

#include <cjson/cJSON.h>

/** Registers the family with the cloud library. 0, or -1. */
int dev_api();

/** Operations on the device; see `nx_handler`. */
int force_off(cJSON *request, cJSON *response);
int nx_upgrade(cJSON *request, cJSON *response);
int dev_locate(cJSON *request, cJSON *response);
int dev_local_upgrade(cJSON *request, cJSON *response);
int dev_config_copy_upload(cJSON *request, cJSON *response);

#endif
