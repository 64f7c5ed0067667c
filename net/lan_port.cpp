#include "net/lan_port.h"

#include <array>
#include <cstdio>

#include "net/ap_param.h"
#include "net/check_record.h"
#include "platform/netif.h"
#include "trace.h"

int get_lan_port_status(int port, int *speed, int *duplex) {
    const int link = hal_get_port_link_status(port);
    int speed_code = 0;
    int duplex_code = 0;
    if (link == 0 || hal_get_eth_status(port, &speed_code, &duplex_code) != 0) {
        return link;
    }
    *speed = speed_code == 2 ? 1000 : speed_code == 0 ? 10 : 100;
    if (duplex_code == 0) {
        *duplex = 2;
    } else if (duplex_code == 1) {
        *duplex = 1;
    }
    return link;
}

int get_lan_port_id_by_index(int index) {
    constexpr std::array ports{1, 3};
    if (index < 0 || static_cast<size_t>(index) >= ports.size()) {
        printf("%s,%d port index error\n", __func__, __LINE__);
        return 0;
    }
    return ports[static_cast<size_t>(index)];
}

int get_lan_port(int *speed_a, int *speed_b) {
    // The third query has no port: it announces itself and asks for port 0.
    std::array<int, 3> speeds{};
    for (size_t i = 0; i < speeds.size(); ++i) {
        int duplex = 0;
        get_lan_port_status(get_lan_port_id_by_index(static_cast<int>(i)), &speeds[i], &duplex);
    }
    *speed_a = speeds[0];
    *speed_b = speeds[1];
    return 0;
}

int check_eth0_throughput(cJSON *results) {
    int speed_a = 0;
    int speed_b = 0;
    int limit = 0;
    get_lan_port(&speed_a, &speed_b);
    get_eth0_rate_max(&limit);
    NX_TRACE("lan0 cur rate : %d, max = %d\n", speed_a, limit);
    const bool slow = speed_a < limit && speed_b < limit;
    check_record_append(results, check_type::wired_throughput,
                        slow ? check_result::problem : check_result::healthy);
    return slow ? 1 : 0;
}
