#include "cloud/project.h"
#include "json.h"
#include "ops/maintenance.h"
#include "ops/nx_dev_api.h"
#include "trace.h"
#include "wireless/config_wifi.h"

// The "net" object that the cloud may send is not for access points: it is left
// alone.
int server_config_download(cJSON *request, cJSON *) {
    if (get_sky_mode() == sky_mode::local) {
        return -1;
    }
    int result = 0;
    const cJSON *wireless = json_get_object(request, "wireless");
    if (wireless != nullptr && config_wifi_parse(wireless) == -1) {
        NX_TRACE("return err!\n");
        result = -1;
    }
    const cJSON *maint = json_get_object(request, "maint");
    if (maint != nullptr && config_maint_parse(maint) == -1) {
        NX_TRACE("return err!\n");
        result = -1;
    }
    return result;
}
