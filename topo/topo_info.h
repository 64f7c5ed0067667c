/**
 * What the device sees around it.
 */
#ifndef TOPO_TOPO_INFO_H
#define TOPO_TOPO_INFO_H

#include <cjson/cJSON.h>

/** Dev command: adds "dev_topo", the up-link and each port with its neighbours.
 *  0; -1: out of memory. */
int topo_info(cJSON *request, cJSON *response);

/**
 * Adds the up-link's port, link rate and VLANs, and sends the marker packet.
 * @param up_port receives the switch port id of the up-link: of the wireless side
 *                or unknown, see topo/ports.h
 * @return always 0
 */
int dev_info_topo_get(cJSON *object, int *up_port);

#endif
