/**
 * The ports of the device as the topology shows them.
 */
#ifndef TOPO_PORTS_H
#define TOPO_PORTS_H

#include <cjson/cJSON.h>

#include <array>

/** A port: its id in the switch, and the number under which the cloud knows it. */
struct TopoPort {
    int switch_id;
    int number;
};

/** Stands for the wireless side, and, as an up-link, for not yet known. */
inline constexpr int topo_port_wireless = 255;
inline constexpr int topo_port_unknown = 224;

inline constexpr std::array<TopoPort, 3> topo_port{{
    {1, 1},
    {3, 2},
    {topo_port_wireless, topo_port_wireless},
}};

/** Adds one object for each port, keyed by its number: link, rates, VLANs and
 *  neighbours. `up_port` is the switch port id of the up-link. 0; -1: out of
 *  memory, what was added stays. */
int dev_port_topo_get(cJSON *object, int up_port);

#endif
