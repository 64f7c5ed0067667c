/**
 * Radio rules and radio optimisations, each of which comes as a command or with a
 * download.
 */
#ifndef WIRELESS_RADIO_APPLY_H
#define WIRELESS_RADIO_APPLY_H

#include <cjson/cJSON.h>

/** What becomes of a radio that works as a client of another access point, and so
 *  keeps its channel, power and country. */
enum class ApClient {
    commits, /**< the other settings are committed and the radio restarts */
    ends,    /**< its element ends there, without commit */
    ignored, /**< the operating mode is not looked at */
};

/** How one path sets a radio. */
struct RadioRules {
    const char *function; /**< stands in its trace lines */
    bool sets_state;      /**< "enable" and "rssi_max" as well */
    bool bounded_below;   /**< power is at least "min_power", otherwise 0 */
    ApClient ap_client;
    bool sets_country;
    bool stops_at_failed_commit; /**< with -1; otherwise the next radio follows */
};

// All differences between the paths but the refusal in local management, the
// stamp and the report of the result, which are the commands' own.
inline constexpr RadioRules radio_config_command{
    .function = "radio_config_set",
    .sets_state = true,
    .bounded_below = true,
    .ap_client = ApClient::commits,
    .sets_country = true,
    .stops_at_failed_commit = false,
};
inline constexpr RadioRules radio_config_download{
    .function = "config_wifi_radio_config_parse",
    .sets_state = true,
    .bounded_below = false,
    .ap_client = ApClient::ends,
    .sets_country = true,
    .stops_at_failed_commit = true,
};
inline constexpr RadioRules radio_optimize_command{
    .function = "radio_opt_set",
    .sets_state = false,
    .bounded_below = true,
    .ap_client = ApClient::ends,
    .sets_country = true,
    .stops_at_failed_commit = false,
};
inline constexpr RadioRules radio_optimize_download{
    .function = "config_wifi_radio_optimiza_parse",
    .sets_state = false,
    .bounded_below = true,
    .ap_client = ApClient::ignored,
    .sets_country = false,
    .stops_at_failed_commit = false,
};

/** Applies the array "rf_rule" of `config`, a commit and a Wi-Fi restart for each
 *  radio. 0; -1: no such array, or a commit failed on a path that stops there. */
int rf_rule_apply(const cJSON *config, const RadioRules &rules);

/** Applies the channels and powers of an optimisation in the same way. */
void rf_optimize_apply(const cJSON *optimize, const RadioRules &rules);

#endif
