/**
 * The two radios and the keys of their settings.
 */
#ifndef BAND_H
#define BAND_H

#include <array>

#include "json_key.h"
#include "nx_limits.h"
#include "platform/wifi.h"

/** A radio. */
struct Band {
    int number;               /**< 0: 2.4 GHz, 1: 5 GHz; named so in Wi-Fi restarts */
    int code;                 /**< 24 or 5; named so by the Wi-Fi helper library */
    int slots;                /**< SSID slots, from 0 */
    const char *radio_prefix; /**< radio key: prefix + field */
    const char *ssid_stem;    /**< SSID key: stem + slot + "." + field */
    JsonKey ssid_array;       /**< array of its SSIDs in JSON */
    int eth_index;            /**< main interface, for `get_eth_name` */
};

inline constexpr std::array<Band, 2> bands{{
    {0, 24, 8, "wl2g.public.", "wl2g.ssid", "radio1", ETH_NAME_RADIO_2G},
    {1, 5, 4, "wl5g.public.", "wl5g.ssid", "radio2", ETH_NAME_RADIO_5G},
}};

/** "vlanid" of an SSID without a VLAN of its own. */
inline constexpr const char *default_vlan = "1000";

/** A key of the store, built from parts. */
struct Key {
    char text[limits::key_text];
};

/** Key of a radio's setting, for example wl2g.public.enable. */
Key radio_key(const Band &band, const char *field);

/** Key of an SSID's setting, for example wl5g.ssid2.enable; `slot` is any
 *  number that a request may hold. */
Key ssid_key(const char *stem, int slot, const char *field);
inline Key ssid_key(const Band &band, int slot, const char *field) {
    return ssid_key(band.ssid_stem, slot, field);
}

/** True when the radio is switched on. */
bool radio_enabled(const Band &band);

#endif
