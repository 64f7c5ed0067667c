/**
 * Commands of the net family that are reserved: each answers success and does
 * nothing else.
 */
#ifndef NET_RESERVED_H
#define NET_RESERVED_H

#include <cjson/cJSON.h>

int basic_set(cJSON *request, cJSON *response);
int basic_get(cJSON *request, cJSON *response);
int route_set(cJSON *request, cJSON *response);
int port_fwd_set(cJSON *request, cJSON *response);
int lan_set(cJSON *request, cJSON *response);

#endif
