#include "topo/topo_info.h"

#include "json.h"
#include "mac.h"
#include "platform/netif.h"
#include "topo/ports.h"
#include "topo/server.h"
#include "topo/vlan.h"
#include "trace.h"

namespace {

/** Link rate of a switch port in Mbit/s; 0 when unknown. */
int port_link_rate(int port) {
    int speed = 0;
    int duplex = 0;
    if (port == topo_port_wireless || hal_get_eth_status(port, &speed, &duplex) != 0) {
        return 0;
    }
    return speed == 0 || speed == 1 ? 100 : speed == 2 ? 1000 : 0;
}

}  // namespace

int dev_info_topo_get(cJSON *object, int *up_port) {
    if (topo_upport == topo_port_unknown) {
        ntdd_get_server_in_which_port();
    }
    const int port = topo_upport;
    const MacText mac = lan_mac_text(MacStyle::upper_colons);
    char ip[limits::ip_text] = {};
    ifaddrs_get_ifip(ifaddrs_get_lan_ifname(), ip);
    const int link_rate = port_link_rate(port);
    VlanText vlans;
    get_trunk_vlan_id(vlans);
    // The cloud knows the second wired port by its logical number.
    json_add_number(object, "up_port", port == 3 ? 2 : port);
    json_add_number(object, "link_rate", link_rate);
    json_add_string(object, "total_vlan", vlans.text);
    send_pass_route_data(ip, mac.text, 0);
    *up_port = port;
    return 0;
}

int topo_info(cJSON *, cJSON *response) {
    cJSON *topology = json_add_object(response, "dev_topo");
    cJSON *device = json_add_object(topology, "dev_info");
    if (device == nullptr) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    int up_port = topo_port_unknown;
    dev_info_topo_get(device, &up_port);
    cJSON *ports = json_add_object(topology, "port_info");
    if (ports == nullptr || dev_port_topo_get(ports, up_port) != 0) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    return 0;
}
