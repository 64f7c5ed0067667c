#include "wireless/radio_apply.h"

#include <algorithm>
#include <cstring>

#include "band.h"
#include "json.h"
#include "notify.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr int weakest_rssi = -90;
constexpr int default_power = 20;
constexpr int channel_unchanged = -1;

/** Fields of a radio's regulation. */
constexpr std::array country_fields{
    Setting{"countrycode_all", "1"},
    Setting{"countrycode_other", "0"},
    Setting{"country_code", "CN"},
    Setting{"country_code_convert", "CN"},
};

/** What a request wants of a radio; the last two only where the path sets them. */
struct Wanted {
    int channel;
    int power;
    int enable = 0;
    int rssi = 0;
};

void set(const Band &band, const char *field, const char *value) {
    store_set(radio_key(band, field).text, value);
}

void set_int(const Band &band, const char *field, int value) {
    store_set_int(radio_key(band, field).text, value);
}

int get_int(const Band &band, const char *field) {
    return store_int(radio_key(band, field).text);
}

bool field_is(const Band &band, const char *field, const char *value) {
    return strcmp(store_get(radio_key(band, field).text).text, value) == 0;
}

void set_state(const Band &band, const Wanted &wanted) {
    if (wanted.enable == 0 || wanted.enable == 1) {
        set_int(band, "enable", wanted.enable);
    }
    set_int(band, "rssi_max", std::max(wanted.rssi, weakest_rssi));
}

void set_country(const Band &band) {
    for (const Setting &field : country_fields) {
        set(band, field.key, field.value);
    }
    if (band.number == 1) {
        set(band, "country_code", "US");  // and converts to "CN"
    }
}

/** Side of the second half of a 40 MHz channel; only the 2.4 GHz radio has one. */
void set_sideband(const Band &band, int channel) {
    if (band.number != 0 ||
        (!field_is(band, "bandwidth", "40") && !field_is(band, "bandwidth", "0"))) {
        return;
    }
    set(band, "sideband_flag", channel == 0 ? "none" : channel < 5 ? "upper" : "lower");
}

void set_radio(const Band &band, const Wanted &wanted, const RadioRules &rules) {
    const int lowest = rules.bounded_below ? get_int(band, "min_power") : 0;
    set_int(band, "channel", wanted.channel);
    set_int(band, "current_power",
            std::max(std::min(wanted.power, get_int(band, "web_max_power")), lowest));
    if (rules.sets_country) {
        set_country(band);
    }
    set_sideband(band, wanted.channel);
}

/** 0; -1: the commit failed and the path stops there. */
int apply(const Band &band, const Wanted &wanted, const RadioRules &rules) {
    if (rules.sets_state) {
        set_state(band, wanted);
    }
    const bool is_client =
        rules.ap_client != ApClient::ignored && field_is(band, "mode", "apclient");
    if (is_client && rules.ap_client == ApClient::ends) {
        return 0;
    }
    if (!is_client) {
        set_radio(band, wanted, rules);
    }
    if (commit_and_restart_wifi(band.number) || !rules.stops_at_failed_commit) {
        return 0;
    }
    nx_trace(rules.function, __LINE__, "[%s]:[%d], commitcfm err!", rules.function, __LINE__);
    return -1;
}

}  // namespace

int rf_rule_apply(const cJSON *config, const RadioRules &rules) {
    const cJSON *list = json_get_array(config, "rf_rule");
    if (list == nullptr) {
        nx_trace(rules.function, __LINE__, "the cJSON_GetObjectItem err!\n");
        return -1;
    }
    size_t index = 0;
    for (const cJSON *rule = list->child; rule != nullptr && index < limits::radio_rules;
         rule = rule->next, ++index) {
        if (index == bands.size()) {
            continue;  // the third radio is not set
        }
        // Rules after that are for the last radio again.
        const Band &band = bands[std::min(index, bands.size() - 1)];
        const Wanted wanted{
            .channel = cJSON_GetObjectIntValue(rule, "channel", 0),
            .power = cJSON_GetObjectIntValue(rule, "power", default_power),
            .enable = cJSON_GetObjectIntValue(rule, "radioenable", 0),
            .rssi = cJSON_GetObjectIntValue(rule, "rssi", -96),
        };
        if (apply(band, wanted, rules) != 0) {
            return -1;
        }
    }
    return 0;
}

void rf_optimize_apply(const cJSON *optimize, const RadioRules &rules) {
    struct Members {
        const char *channel;
        const char *power;
    };
    constexpr std::array<Members, bands.size()> members{
        {{"channel_1", "power_1"}, {"channel_2", "power_2"}}};
    for (size_t i = 0; i < bands.size(); ++i) {
        const Wanted wanted{
            .channel = cJSON_GetObjectIntValue(optimize, members[i].channel, 0),
            .power = cJSON_GetObjectIntValue(optimize, members[i].power, default_power),
        };
        if (wanted.channel != channel_unchanged) {
            apply(bands[i], wanted, rules);
        }
    }
}
