/**
 * Who the device is and how it is bound, handed to the cloud library at
 * start-up, and the two background threads that go with it.
 */
#ifndef CLOUD_IDENTITY_H
#define CLOUD_IDENTITY_H

/** Hands over serial number, MAC, versions, brand and model; on a managed device
 *  also has the clock synchronised. 0, or -1. Main thread, once. */
int set_basic_info();

/** Uploads how the device is bound to a cloud project. 0, or -1. Main thread. */
int set_bind_info();

/** Starts the thread that names the image directory 15 seconds later. */
void set_upgrade_path_info();

/** Starts the beat of alarms and system log, every 15 seconds. Always 0. */
int nx_log_upload_init();

/** One beat. The result of the system log upload. Beat thread. */
int norvex_add_timer();

#endif
