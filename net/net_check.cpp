#include "net/net_check.h"

#include <array>
#include <cstring>

#include "json.h"
#include "net/lan_port.h"
#include "net/load_checks.h"
#include "net/reachability.h"
#include "platform/nxapi.h"
#include "thread.h"
#include "trace.h"

namespace {

/** A check appends its records to the list; the list alone tells how it went. */
using Check = int (*)(cJSON *list);
constexpr std::array<Check, 6> checks{
    channel_usage,   check_sta_num,         check_wifi_throughput,
    check_ping_gate, check_eth0_throughput, check_ping_norvex,
};

}  // namespace

void *net_check_back(void *) {
    const Json list = json_array();
    if (!list) {
        NX_TRACE("malloc is null!\n");
        return nullptr;
    }
    for (const Check check : checks) {
        check(list.get());
    }
    const JsonText text = json_print(list);
    if (!text) {
        return nullptr;
    }
    NX_TRACE("net check result: %s\n", text.get());
    if (nx_api_net_check_back(text.get(), static_cast<int>(strlen(text.get())) + 1) == -1) {
        NX_TRACE("nx_api_net_check_back err!\n");
    }
    return nullptr;
}

int net_check(cJSON *, cJSON *) {
    start_detached("diag", net_check_back);
    return 0;
}
