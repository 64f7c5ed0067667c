#include "ops/set_system_time.h"

#include <sys/time.h>

#include "notify.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

int set_system_time(time_t seconds) {
    constexpr time_t earliest = 11;  // what is below is no time that a user could mean
    const timeval now{.tv_sec = seconds, .tv_usec = 0};
    if (seconds >= earliest && settimeofday(&now, nullptr) != 0) {
        NX_TRACE("Set   system   datatime   error!\n");
        return -1;
    }
    store_set("sys.timesyn", "0");
    doSystemCmd("rm -rf %s", "/var/network_check_result.cfg");
    commit_and_notify(netctrl::clock, 2);
    return 0;
}
