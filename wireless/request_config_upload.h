/**
 * The request to the cloud to send the wireless configuration again.
 */
#ifndef WIRELESS_REQUEST_CONFIG_UPLOAD_H
#define WIRELESS_REQUEST_CONFIG_UPLOAD_H

/** Uploads {"mode", "manage"}. 0; -1: out of memory, nothing was sent, or the
 *  library refused. Any thread. */
int request_config_upload();

#endif
