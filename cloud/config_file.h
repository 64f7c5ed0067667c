/**
 * The whole configuration as one file, on its way to and from the cloud.
 */
#ifndef CLOUD_CONFIG_FILE_H
#define CLOUD_CONFIG_FILE_H

#include <cstddef>

#include "platform/systool.h"

/** Bytes of the head of an upload, NUL-padded: the file's name, or the serial
 *  number that a copy is meant for. */
constexpr size_t config_head_size = 32;

/** An export of the device's configuration. */
struct ConfigExport {
    char path[SYSTOOL_FILE_NAME_MAX]; /**< empty: there is none */
};

/** Has the platform export the configuration now. */
ConfigExport export_config();

/** Bytes that an export has in an upload, the two leading lines counted; 0 when
 *  the file cannot be opened. */
size_t config_body_size(const ConfigExport &file);

/**
 * Uploads an export behind a head.
 *
 * @param head       text of the head, cut to its 32 bytes
 * @param body_size  of `config_body_size`; what the file has grown by since is
 *                   left out
 * @param upload     call of the cloud library: data, length; -1: refused
 * @param function   stands in the trace lines
 * @return 0, or -1: out of memory or refused
 */
int upload_config(const ConfigExport &file, size_t body_size, const char *head,
                  int (*upload)(const char *data, int length),
                  const char *function = __builtin_FUNCTION());

/** Cloud command, without the wrapper: takes a configuration file, commits it
 *  and restarts the device. See `nx_command_cb`; blocks up to 10 seconds. */
extern "C" int config_sync(void *context, int in_len, const char *in, char **out, int *out_len,
                           void *private_data);

/** Uploads the configuration file. 0, or -1; without an export what its trace
 *  line returns, which is 0 while tracing is off. Main thread. */
int norvex_config_upload();

/** Tells the cloud that the device is now managed locally. 0, or -1. */
int norvex_mode_change_upload();

#endif
