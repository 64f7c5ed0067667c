/**
 * The devices that the topology daemon has found around this one.
 */
#ifndef TOPO_NEIGHBOURS_H
#define TOPO_NEIGHBOURS_H

#include <cjson/cJSON.h>

/**
 * Adds the direct neighbours behind a switch port, keyed by their MAC, from
 * "/tmp/file_topo"; none when the file is not there.
 * @param neighbours 0 asks for the other devices, of which none is ever told
 * @return always 0
 */
int topo_devs_get(cJSON *object, int switch_port, int neighbours);

#endif
