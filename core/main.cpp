#include <malloc.h>

#include <cstdio>

#include "cloud/identity.h"
#include "core/cloud_api.h"
#include "core/control_socket.h"
#include "core/event_loop.h"
#include "net/net_api.h"
#include "ops/nx_dev_api.h"
#include "platform/holymsg.h"
#include "platform/systool.h"
#include "store.h"
#include "topo/exchange.h"
#include "trace.h"
#include "wireless/wireless_api.h"

namespace {

/** Keeps the GNU C library from giving each worker thread a heap of its own, which costs
 *  more memory than the whole agent, and from holding on to the buffer that the system
 *  log is read into. Other libraries have one heap anyway. */
void keep_heap_small() {
#ifdef M_ARENA_MAX
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, 64 * 1024);
#endif
}

/** Registers the device and its commands. The last family decides the result: a
 *  device whose other registrations fail still starts. */
int nx_conn_notify() {
    NX_TRACE("########nx_conn_notify##########\n");
    cloud_api();
    set_basic_info();
    set_bind_info();
    dev_api();
    net_api();
    return wireless_api();
}

}  // namespace

int main(int, char **) {
    keep_heap_small();
    if (apmib_init() == 0) {
        puts("Initialize AP MIB failed !");
        return -1;
    }
    nx_debug_state = store_int("nx.debug");
    system_init_core_dump();
    assign_poll_start(start_poll_fn);
    assign_poll_stop(stop_poll_fn);
    holymsg_run_async();
    norvex_topo_exc_start();
    if (nx_api_lib_init() < 0) {
        NX_TRACE("Failed to init nx api\n");
        return -1;
    }
    set_debug_level(7);
    if (nx_conn_notify() < 0) {
        NX_TRACE("Failed to register conn notify\n");
        return -1;
    }
    if (nx_log_upload_init() < 0) {
        NX_TRACE("Failed to nx_log_upload_init\n");
        return -1;
    }
    if (nx_cgi_init() < 0) {
        NX_TRACE("Failed to init nx cgi\n");
        return -1;
    }
    set_upgrade_path_info();
    for (;;) {
        poll_once();
    }
}
