#include "topo/ports.h"

#include <cstdio>
#include <cstring>

#include "json.h"
#include "platform/netif.h"
#include "store.h"
#include "topo/neighbours.h"
#include "topo/port_rate.h"
#include "topo/vlan.h"

namespace {

constexpr int link_up_rate = 1000;  // Mbit/s

/** True when the wired port carries all VLANs: the flags are digits at every
 *  second place of "qvlan.truck.port", and what is missing is 0. */
bool is_trunk(const char *flags, size_t index) {
    const size_t place = 2 * index;
    return place < strlen(flags) && flags[place] >= '1' && flags[place] <= '9';
}

void add_vlans(cJSON *object, size_t index, bool trunk) {
    if (trunk) {
        VlanText vlans;
        get_trunk_vlan_id(vlans);
        json_add_string(object, "vlan_id", vlans.text);
        return;
    }
    char key[limits::key_text];
    snprintf(key, sizeof key, "lan.%zu.vlanid", index);
    json_add_string(object, "vlan_id", store_get(key).text);
}

void add_wired(cJSON *object, const TopoPort &port, size_t index, const char *trunk_flags,
               int link_rate) {
    PortRate rate;
    get_port_rate(port.number - 1, rate);
    json_add_number(object, "link_rate", link_rate);
    json_add_number(object, "tx_rate", static_cast<double>(rate.tx));
    json_add_number(object, "rx_rate", static_cast<double>(rate.rx));
    add_vlans(object, index, is_trunk(trunk_flags, index));
}

/** The wireless side has no link of its own: it shows that of the last wired
 *  port in all its rates. */
void add_wireless(cJSON *object, int link_rate) {
    printf("ifname:%s, link_rate:%d\n", "wlan1", link_rate);
    for (const JsonKey member : {JsonKey("link_rate"), JsonKey("tx_rate"), JsonKey("rx_rate")}) {
        json_add_number(object, member, link_rate);
    }
}

}  // namespace

int dev_port_topo_get(cJSON *object, int up_port) {
    const StoreValue trunk_flags = store_get("qvlan.truck.port");
    int link_rate = 0;
    for (size_t i = 0; i < topo_port.size(); ++i) {
        const TopoPort &port = topo_port[i];
        char key[12];
        snprintf(key, sizeof key, "%d", port.number);
        cJSON *entry = json_add_named(object, key, json_object());
        if (entry == nullptr) {
            return -1;
        }
        if (port.number == topo_port_wireless) {
            add_wireless(entry, link_rate);
        } else {
            link_rate = hal_get_port_link_status(port.switch_id) == 1 ? link_up_rate : 0;
            add_wired(entry, port, i, trunk_flags.text, link_rate);
        }
        json_add_number(entry, "port", port.number);
        cJSON *neighbours = json_add_object(entry, "neighbour_devs");
        cJSON *unknown = json_add_object(entry, "unknown_devs");
        if (neighbours == nullptr || unknown == nullptr) {
            return -1;
        }
        topo_devs_get(neighbours, port.switch_id, 1);
        if (port.switch_id != up_port) {
            topo_devs_get(unknown, port.switch_id, 0);
        }
    }
    return 0;
}
