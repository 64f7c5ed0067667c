/**
 * The whole configuration as one file, on its way to and from the cloud.
 */
#ifndef CLOUD_CONFIG_FILE_H
#define CLOUD_CONFIG_FILE_H

#include <cstddef>
#include <memory>

/** Cloud command, without the wrapper: takes a configuration file, commits it
 *  and restarts the device. See `nx_command_cb`; blocks up to 10 seconds. */
extern "C" int config_sync(void *context, int in_len, const char *in, char **out, int *out_len,
                           void *private_data);

/** Uploads the configuration file. 0, or -1. Main thread. */
int norvex_config_upload();

/** Tells the cloud that the device is now managed locally. 0, or -1. */
int norvex_mode_change_upload();

#endif
