#include "json.h"
#include "report/clients.h"
#include "report/config_report.h"
#include "report/radio.h"
#include "trace.h"
#include "wireless/wireless_api.h"

namespace {

/** The members in their order; false: out of memory. */
bool collect(cJSON *response) {
    cJSON *rules = json_add_array(response, "rf_rule");
    if (rules == nullptr || rf_rule_get(rules) != 0) {
        return false;
    }
    cJSON *ssids = json_add_array(response, "ssid_info");
    if (ssids == nullptr || ssid_info_get(ssids) != 0) {
        return false;
    }
    int stations = 0;
    user_num_get(&stations);
    if (json_add_number(response, "stanum", stations) == nullptr) {
        return false;
    }
    wireless_info_get(response);
    if (json_add_object(response, "load_blance") == nullptr) {
        return false;
    }
    cJSON *neighbours = json_add_array(response, "neighbor_entry_s");
    if (neighbours == nullptr) {
        return false;
    }
    neighbor_entry_get(neighbours);  // a failed scan leaves what was heard before
    return true;
}

}  // namespace

int radio_optimiza_upload(cJSON *, cJSON *response) {
    if (!collect(response)) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    return 0;
}
