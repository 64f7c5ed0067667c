/**
 * The VLANs of the device.
 */
#ifndef TOPO_VLAN_H
#define TOPO_VLAN_H

/** VLAN ids in ascending order, each once, with a blank between: sixteen decimal
 *  numbers at most. */
struct VlanText {
    char text[16 * 12] = {};
};

/** Lists the VLANs that a trunk carries: the port's, the management, the LAN and
 *  the enabled SSIDs' ones. Untouched while "wl.0.vlan.enable" is 0. Always 0. */
int get_trunk_vlan_id(VlanText &vlans);

#endif
