/**
 * What the device tells the cloud by itself on each beat.
 */
#ifndef ALARM_ALARM_H
#define ALARM_ALARM_H

/** Samples processor and ROM use and uploads an alarm when one is due. 0: sent,
 *  or nothing to send; -1: failure. Beat thread. */
int api_alarm_upload();

/** Uploads the newest system log records when there are new ones. 0, or -1.
 *  Beat thread. */
int sys_log_upload();

#endif
