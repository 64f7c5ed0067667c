/**
 * The stations associated with the access point.
 */
#ifndef REPORT_CLIENTS_H
#define REPORT_CLIENTS_H

#include <cjson/cJSON.h>

/** Appends one object for each station, with traffic and rates since the call
 *  before. 0; -1: out of memory; above 0: no room for the ARP table. Main thread
 *  only: it keeps the stations of the call before. */
int user_list_get(cJSON *array);

/** Appends MAC and band of each station. -1: out of memory. */
int simple_user_list_get(cJSON *array);

#endif
