#include "report/radio.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "band.h"
#include "json.h"
#include "mac.h"
#include "platform/apmib.h"
#include "platform/netif.h"
#include "platform/wifi.h"
#include "store.h"
#include "trace.h"

namespace {

/** What a radio works on at this moment. */
struct RadioNow {
    int channel;   /**< 0 while nothing is on the air */
    int bandwidth; /**< MHz; the configured value while the radio is off */
};

/** Numbers of a radio rule that are reported as they are stored. */
struct RuleMember {
    JsonKey member;
    const char *field;
};

constexpr std::array rule_members{
    RuleMember{"power", "current_power"},
    RuleMember{"rssi", "rssi_max"},
    RuleMember{"radioenable", "enable"},
    RuleMember{"other", "countrycode_other"},
};

int radio_int(const Band &band, const char *field) {
    return store_int(radio_key(band, field).text);
}

/** True for a radio that is the client of another access point. */
bool is_client(const Band &band) {
    return strcmp(store_get(radio_key(band, "mode").text).text, "apclient") == 0;
}

bool any_ssid_enabled(const Band &band) {
    for (int slot = 0; slot < band.slots; ++slot) {
        if (store_int(ssid_key(band, slot, "enable").text) != 0) {
            return true;
        }
    }
    return false;
}

RadioNow radio_now(const Band &band) {
    if (!radio_enabled(band)) {
        return {0, radio_int(band, "bandwidth")};
    }
    const bool on_air = any_ssid_enabled(band);
    wifi_radio_status status{};
    wifi_get_status_list(band.code, 0, &status);
    return {on_air ? text_int(status.channel) : 0, text_int(status.bandwidth)};
}

void fill_rule(cJSON *rule, const Band &band) {
    const RadioNow now = radio_now(band);
    const bool client = is_client(band);
    json_add_number(rule, "radioflag", now.channel);
    json_add_number(rule, "bindwidth", now.bandwidth);
    // A client follows its access point: the configured channel does not apply.
    json_add_number(rule, "channel", client ? now.channel : radio_int(band, "channel"));
    json_add_number(rule, "is_ap_client", client ? 1 : 0);
    for (const RuleMember &row : rule_members) {
        json_add_number(rule, row.member, radio_int(band, row.field));
    }
}

void fill_neighbor(cJSON *neighbor, const Band &band, const wifi_scan_result &result) {
    char bssid[limits::mac_text];
    string_upper_mac(result.bssid, bssid);
    json_add_string(neighbor, "bssid", bssid);
    json_add_number(neighbor, "band_type", band.number + 1);
    json_add_string(neighbor, "ssid", result.ssid);
    cJSON *chanspec = json_add_object(neighbor, "chanspec");
    json_add_number(chanspec, "primary_channel", text_int(result.channel));
    json_add_number(chanspec, "bandwidth", text_int(result.bandwidth));
    json_add_number(neighbor, "rssi", text_int(result.signal));
    json_add_number(neighbor, "snr", 0);
}

using ScanResults = std::array<wifi_scan_result, 128>;

/** Scans with a radio; how many results there are, 0 when the scan failed. */
int scan(const Band &band, ScanResults &results) {
    const auto room = static_cast<int>(results.size());
    int count = 0;
    const int failed = wifi_do_scan(get_eth_name(band.eth_index), &count, results.data(), room);
    return failed != 0 ? 0 : std::clamp(count, 0, room);
}

/** Identifier of a slot's BSSID in the access-point store, the same for both
 *  radios. */
constexpr int bssid_id(int slot) {
    return slot == 0   ? APMIB_BSSID_SLOT0
           : slot <= 4 ? APMIB_BSSID_SLOT1 + slot - 1
                       : APMIB_BSSID_SLOT5 + slot - 5;
}

MacText slot_bssid(int slot) {
    uint8_t bssid[6] = {};
    apmib_get(bssid_id(slot), bssid);
    return mac_text(bssid, MacStyle::upper_colons);
}

/** BSSID of the access point that a client-mode radio is associated with; empty
 *  while it is switched off. */
MacText upstream_bssid(const Band &band) {
    wifi_radio_status status{};
    if (radio_enabled(band)) {
        wifi_get_status_list(band.code, band.number, &status);
    }
    MacText upper{};
    string_upper_mac(status.bssid, upper.text);
    return upper;
}

}  // namespace

int rf_rule_get(cJSON *array) {
    for (const Band &band : bands) {
        cJSON *rule = json_made(json_append(array, json_object()));
        if (rule == nullptr) {
            return -1;
        }
        fill_rule(rule, band);
    }
    return 0;
}

int neighbor_entry_get(cJSON *array) {
    for (const Band &band : bands) {
        if (!radio_enabled(band)) {
            NX_TRACE("[%s]:[%d],wifi disabled!\n", __func__, __LINE__);
            continue;
        }
        ScanResults results{};
        const int count = scan(band, results);
        if (count < 1) {
            NX_TRACE("[%s]:[%d],the result of scan is error!\n", __func__, __LINE__);
            return -1;
        }
        NX_TRACE("wifi do scan list_len = %d\n", count);
        for (int i = 0; i < count; ++i) {
            // A hidden network stays an empty object, at its position.
            cJSON *neighbor = json_made(json_append(array, json_object()));
            if (neighbor == nullptr) {
                return -1;
            }
            if (results[i].ssid[0] != '\0') {
                fill_neighbor(neighbor, band, results[i]);
            }
        }
    }
    return 0;
}

int ssid_info_get(cJSON *array) {
    for (const Band &band : bands) {
        for (int slot = 0; slot < band.slots; ++slot) {
            cJSON *info = json_made(json_append(array, json_object()));
            if (info == nullptr) {
                return -1;
            }
            const MacText bssid =
                slot == 0 && is_client(band) ? upstream_bssid(band) : slot_bssid(slot);
            json_add_string(info, "bssid", bssid.text);
            json_add_string(info, "ssid", store_get(ssid_key(band, slot, "ssid").text).text);
            json_add_number(info, "bandidx", band.number);
        }
    }
    return 0;
}
