#include "json.h"
#include "measure/user_count.h"
#include "report/config_report.h"
#include "report/radio.h"
#include "wireless/wireless_api.h"

int radio_optimiza_upload(cJSON *, cJSON *response) {
    cJSON *rules = json_made(json_add_array(response, "rf_rule"));
    if (rules == nullptr || rf_rule_get(rules) != 0) {
        return -1;
    }
    cJSON *ssids = json_made(json_add_array(response, "ssid_info"));
    if (ssids == nullptr || ssid_info_get(ssids) != 0) {
        return -1;
    }
    int stations = 0;
    user_num_get(&stations);
    if (json_made(json_add_number(response, "stanum", stations)) == nullptr) {
        return -1;
    }
    wireless_info_get(response);
    if (json_made(json_add_object(response, "load_blance")) == nullptr) {
        return -1;
    }
    cJSON *neighbours = json_made(json_add_array(response, "neighbor_entry_s"));
    if (neighbours == nullptr) {
        return -1;
    }
    neighbor_entry_get(neighbours);  // after a failed scan, what was heard before it
    return 0;
}
