#include "wireless/config_wifi.h"

#include "json.h"
#include "store.h"
#include "wireless/radio_apply.h"
#include "wireless/ssid_apply.h"
#include "wireless/vlan_decision.h"

int config_wifi_wireless_parse(const cJSON *wireless_config) {
    SsidRun run;
    if (ssid_apply(wireless_config, ssid_download, run) != 0) {
        return -1;
    }
    decide_vlan(run);
    return 0;
}

int config_wifi_radio_config_parse(const cJSON *radio_config) {
    return rf_rule_apply(radio_config, radio_config_download);
}

int config_wifi_radio_optimiza_parse(const cJSON *optimize) {
    rf_optimize_apply(optimize, radio_optimize_download);
    return 0;
}

int config_wifi_parse(const cJSON *config) {
    struct Part {
        const char *member;
        int (*parse)(const cJSON *);
    };
    constexpr Part parts[] = {
        {"wireless_config", config_wifi_wireless_parse},
        {"radio_config", config_wifi_radio_config_parse},
        {"radio_optimize", config_wifi_radio_optimiza_parse},
    };
    store_set_int("nx.wireless_timestamp", cJSON_GetObjectIntValue(config, "timestamp", 0));
    for (const Part &part : parts) {
        if (const cJSON *object = json_get_object(config, part.member)) {
            part.parse(object);
        }
    }
    return 0;
}
