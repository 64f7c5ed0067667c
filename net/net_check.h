/**
 * Diagnosis of the device's network.
 */
#ifndef NET_NET_CHECK_H
#define NET_NET_CHECK_H

#include <cjson/cJSON.h>

/** Net command: starts a diagnosis on a thread of its own. Reads no request,
 *  writes no response; always 0. */
int net_check(cJSON *request, cJSON *response);

/** Runs the checks and sends their list to the cloud; takes seconds. Body of the
 *  diagnosis thread; always null. */
void *net_check_back(void *);

#endif
