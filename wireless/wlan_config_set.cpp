#include <unistd.h>

#include <cstdio>

#include "cloud/project.h"
#include "json.h"
#include "platform/systool.h"
#include "wireless/request_config_upload.h"
#include "wireless/ssid_apply.h"
#include "wireless/wireless_api.h"

namespace {

/** The device restarts for a changed VLAN; the cloud sends the configuration
 *  again once it is back. */
void restart_for_vlan() {
    request_config_upload();
    puts(
        "********************************************\n"
        "   vlanid changed.then system going reboot  \n"
        "********************************************");
    fflush(stdout);
    sleep(1);
    systool_sys_handle(SYSTOOL_REBOOT);
}

}  // namespace

int wlan_config_set(cJSON *request, cJSON *) {
    if (get_sky_mode() == sky_mode::local) {
        return -1;
    }
    store_set_int("nx.wireless_timestamp", cJSON_GetObjectIntValue(request, "timestamp", 0));
    SsidRun run;
    ssid_apply(request, ssid_command, run);
    if (run.vlan_changed) {
        restart_for_vlan();
    }
    return 0;
}
