/**
 * Checks of the network diagnosis that judge the load of the access point. Each
 * appends one record to the result list; all run on a diagnosis thread.
 */
#ifndef NET_LOAD_CHECKS_H
#define NET_LOAD_CHECKS_H

#include <cjson/cJSON.h>

/** Current channel of a radio (`band` 24: 2.4 GHz, any other: 5 GHz). 0; -1: the
 *  radio is off. */
int get_cur_channel(int *channel, int band);

/** Use of a channel in per cent, from "/proc/<ifname>/ch_util"; 0 when the file does
 *  not tell. 0; -1: the name is no safe word or the command cannot be started, and
 *  `usage` keeps its value. */
int get_current_channel_usage(const char *ifname, int channel, int *usage);

/** -1: more than 60 per cent of the radio's channel are in use; 0 otherwise, and
 *  when the radio is off. */
int check_channel_usage(int band);

/** Record of both radios' channels. -1: out of memory. */
int channel_usage(cJSON *results);

/** Record of the number of stations. 1: more than 80 per cent of the model's limit;
 *  0: fewer; -1: no model is configured, or out of memory. */
int check_sta_num(cJSON *results);

/** Record of the wireless rates against 70 per cent of the model's. Returns the
 *  record's result, 0 or -1. */
int check_wifi_throughput(cJSON *results);

#endif
