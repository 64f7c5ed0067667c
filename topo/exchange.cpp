#include "topo/exchange.h"

#include <unistd.h>

#include "builtin.h"
#include "platform/holymsg.h"
#include "platform/systool.h"
#include "store.h"
#include "thread.h"
#include "topo/daemons.h"
#include "topo/server.h"
#include "trace.h"

namespace {

constexpr unsigned management_poll_seconds = 10;

// What the kernel module takes to see its interfaces after it was loaded.
constexpr unsigned module_start_seconds = 10;

/** Brings the topology module and daemons up once the device is managed; a
 *  device that never is waits for ever. */
void *start_topo_exc(void *) {
    holymsg_subscribe("net_topo.server_port.from_kernel", ntdd_server_in_which_port_event_callback,
                      nullptr);
    ntdd_set_server_info(NX_TOPO_SERVER, "11812", "TCP");
    while (store_int("nx.manage.status") == 0) {
        sleep(management_poll_seconds);
    }
    doSystemCmd("insmod /lib/modules/network_topology.ko");
    sleep(module_start_seconds);
    ntdd_set_valid_ifname();
    const TopoServer server = topo_server_get();
    ntdd_set_server_info(server.ip, server.port, server.proto);
    nx_start_lldpd();
    nx_start_ndtt();
    ntdd_get_server_in_which_port();
    return nullptr;
}

}  // namespace

void norvex_topo_exc_start() {
    if (!start_detached("topo", start_topo_exc)) {
        NX_TRACE("pthread create start_topo_exc error\n");
    }
}
