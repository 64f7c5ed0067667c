/**
 * The local control socket "/var/norvex_socket": other programs of the device
 * send one short text a connection and get no answer.
 *
 * "DownloadCfg"      upload the configuration
 * "SkyModeChange"    tell the cloud that the device is managed locally
 * "norvex.log.TEXT"  forward TEXT as a running log line
 */
#ifndef CORE_CONTROL_SOCKET_H
#define CORE_CONTROL_SOCKET_H

/** Makes a listening UNIX stream socket at `path`, in place of a file that is
 *  there. Returns the descriptor, also through `fd_out`; a failure ends the
 *  process with status 1. */
int nx_server_init(const char *path, int *fd_out);

/** Opens the control socket and watches it; its descriptor, or -1. Main thread. */
int nx_cgi_init();

/** Poll callback: takes one connection and its message. 0; -1: `accept` failed. */
extern "C" int recv_msg_handle(void *item, int fd, int mask);

/** Forwards a running log message, less its first 11 characters, the room of the
 *  prefix, wherever the prefix stands. */
void running_log_upload(const char *message);

#endif
