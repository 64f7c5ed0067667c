#include "cloud/project.h"
#include "json.h"
#include "store.h"
#include "wireless/radio_apply.h"
#include "wireless/wireless_api.h"

int radio_config_set(cJSON *request, cJSON *) {
    if (get_sky_mode() == sky_mode::local) {
        return -1;
    }
    store_set_int("nx.wireless_timestamp", cJSON_GetObjectIntValue(request, "timestamp", 0));
    return rf_rule_apply(request, radio_config_command);
}
