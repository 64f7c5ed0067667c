#include "cloud/project.h"
#include "json.h"
#include "store.h"
#include "trace.h"
#include "wireless/radio_apply.h"
#include "wireless/radio_opt_back.h"
#include "wireless/wireless_api.h"

int radio_opt_set(cJSON *request, cJSON *) {
    const cJSON *optimize = json_get_object(request, "rf_optimize");
    if (optimize == nullptr) {
        NX_TRACE("the cJSON_GetObjectItem err!\n");
        return -1;
    }
    if (get_sky_mode() == sky_mode::local) {
        return -1;
    }
    store_set_int("nx.wireless_timestamp", cJSON_GetObjectIntValue(optimize, "timestamp", 0));
    rf_optimize_apply(optimize, radio_optimize_command);
    return radio_opt_result_back();
}
