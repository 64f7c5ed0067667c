#include "report/config_report.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include "band.h"
#include "cloud_time.h"
#include "json.h"
#include "platform/netif.h"
#include "platform/systool.h"
#include "platform/wifi.h"
#include "report/decimal.h"
#include "report/radio.h"
#include "ssid_security.h"
#include "store.h"
#include "trace.h"

namespace {

/* ---- reboot schedule --------------------------------------------------- */

constexpr int weekdays = 7;

/** The schedule as it is stored, read at one moment. */
struct Maintenance {
    int timestamp = store_int("nx.maint_timestamp");
    int enable = store_int("sys.schedulereboot.enable");
    int type = store_int("sys.schedulereboot.type");
    int interval = store_int("sys.schedulereboot.interval");
    StoreValue days = store_get("sys.schedulereboot.wday");
    StoreValue start_time = store_get("sys.schedulereboot.start_time");
};

/** Weekday flags of a stored text: its second to eighth digit. The first one has
 *  no weekday; a text of fewer digits means no day at all. */
std::array<int, weekdays> repeat_days(const char *text) {
    int unused = 0;
    std::array<int, weekdays> days{};
    const int parsed = sscanf(text, "%1d%1d%1d%1d%1d%1d%1d%1d", &unused, &days[0], &days[1],
                              &days[2], &days[3], &days[4], &days[5], &days[6]);
    return parsed == weekdays + 1 ? days : std::array<int, weekdays>{};
}

bool add_schedule(cJSON *object, const Maintenance &stored) {
    cJSON *schedule = json_add_object(object, "schedule_reboot");
    if (json_add_string(schedule, "start_time", stored.start_time.text) == nullptr) {
        return false;
    }
    cJSON *days = json_add_array(schedule, "repeat_day");
    for (const int day : repeat_days(stored.days.text)) {
        if (json_append(days, Json(cJSON_CreateNumber(day))) == nullptr) {
            return false;
        }
    }
    return true;
}

bool add_cycle(cJSON *object, const Maintenance &stored) {
    cJSON *cycle = json_add_object(object, "cycle_restart");
    return json_add_number(cycle, "timeval", stored.interval) != nullptr;
}

/* ---- SSID -------------------------------------------------------------- */

/** A slot whose settings are reported. */
struct SsidSlot {
    const char *stem;
    int slot;
    StoreValue get(const char *field) const { return store_get(ssid_key(stem, slot, field).text); }
    int number(const char *field) const { return text_int(get(field).text); }
};

/** Adds one member; `field` is the setting that it comes from. */
using SsidConversion = void (*)(cJSON *object, JsonKey member, const SsidSlot &ssid,
                                const char *field);

void as_number(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *field) {
    json_add_number(object, member, ssid.number(field));
}

void as_text(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *field) {
    json_add_string(object, member, ssid.get(field).text);
}

void as_empty(cJSON *object, JsonKey member, const SsidSlot &, const char *) {
    json_add_string(object, member, "");
}

void as_zero(cJSON *object, JsonKey member, const SsidSlot &, const char *) {
    json_add_number(object, member, 0);
}

void as_slot(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *) {
    json_add_number(object, member, ssid.slot);
}

/** The slot's mode; null for one that the cloud has no code for. */
const SsidEncryption *encryption_of(const SsidSlot &ssid) {
    const StoreValue security = ssid.get("security");
    const StoreValue type = ssid.get("wpapsk_type");
    const auto *row = std::ranges::find_if(ssid_encryptions, [&](const SsidEncryption &mode) {
        return strcmp(mode.security, security.text) == 0 &&
               (mode.type == nullptr || strcmp(mode.type, type.text) == 0);
    });
    return row == ssid_encryptions.end() ? nullptr : row;
}

void as_encryption(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *) {
    const SsidEncryption *mode = encryption_of(ssid);
    json_add_number(object, member, mode != nullptr ? mode->code : ssid_encryption_other);
}

/** An unknown cipher counts as the first one. */
void as_cipher(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *field) {
    const StoreValue name = ssid.get(field);
    int code = 0;
    for (size_t i = 0; i < ssid_ciphers.size(); ++i) {
        code = strcmp(ssid_ciphers[i], name.text) == 0 ? static_cast<int>(i) : code;
    }
    json_add_number(object, member, code);
}

/** The shut-off schedule, which counts only while the shut-off is on. */
void as_schedule(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *field) {
    json_add_string(object, member, ssid.number("nx.time_close") != 0 ? ssid.get(field).text : "");
}

/** The VLAN of every SSID without one of its own is not told. */
void as_vlan(cJSON *object, JsonKey member, const SsidSlot &ssid, const char *field) {
    const StoreValue id = ssid.get(field);
    json_add_string(object, member, strcmp(id.text, default_vlan) == 0 ? "" : id.text);
}

struct SsidMember {
    JsonKey member;
    const char *field;
    SsidConversion add;
};

constexpr std::array ssid_members{
    SsidMember{"name", nullptr, as_empty},
    SsidMember{"ssididx", nullptr, as_slot},
    SsidMember{"ssid", "ssid", as_text},
    SsidMember{"hide", "hide", as_number},
    SsidMember{"encrypt", nullptr, as_encryption},
    SsidMember{"security", "wpapsk_crypto", as_cipher},
    SsidMember{"update_time", "key_uptime", as_number},
    SsidMember{"max_conn", "bss_maxassoc", as_number},
    SsidMember{"time_close", "nx.time_close", as_number},
    SsidMember{"timeval", "nx.timeval", as_schedule},
    SsidMember{"status", "enable", as_number},
    SsidMember{"type", "type", as_number},
    SsidMember{"guest_mode", "guest_enable", as_number},
    SsidMember{"wire_mode", nullptr, as_zero},
    SsidMember{"client_quarantine", "sta_isolate", as_number},
    SsidMember{"vlan", "vlanid", as_vlan},
};

bool add_ssids(cJSON *wireless_config, const Band &band) {
    cJSON *array = json_add_array(wireless_config, band.ssid_array);
    if (array == nullptr) {
        return false;
    }
    for (int slot = 0; slot < band.slots; ++slot) {
        ssid_config_get(slot, array, band.ssid_stem);
    }
    return true;
}

/* ---- traffic ----------------------------------------------------------- */

constexpr double kibibyte = 1024.0;

/** Summed counters, kibibytes; single precision is what the cloud is used to. */
struct Traffic {
    float up = 0;
    float down = 0;
};

/** The radio's number stands where an SSID's belongs, so that one interface
 *  counts once for each slot. */
void add_traffic(const Band &band, Traffic &sum) {
    const StoreValue mode = store_get(radio_key(band, "mode").text);
    for (int slot = 0; slot < band.slots; ++slot) {
        char ifname[64] = {};
        if_stats stats{};
        get_wifi_ifname(band.code, mode.text, band.number, ifname);
        sys_get_if_statistics(ifname, &stats);
        sum.up = static_cast<float>(sum.up + static_cast<double>(stats.rx_bytes) / kibibyte);
        sum.down = static_cast<float>(sum.down + static_cast<double>(stats.tx_bytes) / kibibyte);
    }
}

}  // namespace

int maint_data_get(cJSON *object) {
    const Maintenance stored;
    const bool scheduled = stored.type != 0;
    if (json_add_number(object, "close_reboot", stored.enable) == nullptr ||
        json_add_number(object, "timestamp", stored.timestamp) == nullptr ||
        json_add_number(object, "mainetmode", scheduled ? 1 : 2) == nullptr ||
        !(scheduled ? add_schedule(object, stored) : add_cycle(object, stored))) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    return 0;
}

int wireless_data_get(cJSON *object) {
    json_add_number(object, "timestamp", wireless_timestamp_get());
    cJSON *wireless_config = json_add_object(object, "wireless_config");
    for (const Band &band : bands) {
        if (!add_ssids(wireless_config, band)) {
            return -1;
        }
    }
    cJSON *rules = json_add_array(json_add_object(object, "radio_config"), "rf_rule");
    return rules == nullptr ? -1 : rf_rule_get(rules);
}

int ssid_config_get(int slot, cJSON *array, const char *stem) {
    const SsidSlot ssid{stem, slot};
    const SsidEncryption *mode = encryption_of(ssid);
    cJSON *object = json_append(array, json_object());
    // The pass phrase stands first, and only where one is in use.
    if (mode != nullptr && mode->type != nullptr) {
        json_add_string(object, "passwd", ssid.get("wpapsk_psk").text);
    }
    for (const SsidMember &row : ssid_members) {
        row.add(object, row.member, ssid, row.field);
    }
    return 0;
}

int wireless_timestamp_get() {
    const int mode = store_int("nx.manage.mode");
    if (mode == 1) {
        return store_int("nx.wireless_timestamp");
    }
    if (mode != 2) {
        return 0;
    }
    const StoreValue local = store_get("nx.local_wireless_timestamp");
    if (local.found) {
        return text_int(local.text);
    }
    const StoreValue start = store_get("sys.up.timestamp");
    if (start.found) {
        using Limits = std::numeric_limits<int32_t>;
        const int64_t now = int64_t{text_int(start.text)} + system_get_uptime();
        return static_cast<int>(std::clamp<int64_t>(now, Limits::min(), Limits::max()));
    }
    return cloud_time(time(nullptr), store_int("sys.timezone"));
}

int wireless_info_get(cJSON *object) {
    Traffic sum;
    for (const Band &band : bands) {
        if (radio_enabled(band)) {
            add_traffic(band, sum);
        }
    }
    json_add_decimal(object, "uprate", sum.up);
    json_add_decimal(object, "downrate", sum.down);
    return 0;
}
