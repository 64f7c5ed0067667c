#include "wireless/ssid_apply.h"

#include <algorithm>
#include <cstring>

#include "band.h"
#include "json.h"
#include "notify.h"
#include "ssid_security.h"
#include "trace.h"

namespace {

/** One SSID of the store. */
struct Slot {
    const Band &band;
    int index;

    Key key(const char *field) const { return ssid_key(band, index, field); }
    void set(const char *field, const char *value) const { store_set(key(field).text, value); }
    void set_int(const char *field, int value) const { store_set_int(key(field).text, value); }
};

void trace(const SsidRules &rules, const char *separator, const char *text, int line) {
    if (rules.traces_place_twice) {
        nx_trace(rules.function, line, "[%s]:[%d]%s%s\n", rules.function, line, separator, text);
    } else {
        nx_trace(rules.function, line, "%s\n", text);
    }
}

void apply_vlan(const Slot &slot, const char *vlan, const SsidRules &rules, SsidRun &run) {
    const int id = text_int(vlan);
    if (id < 0 || (id == 0 && !rules.vlan_zero_resets)) {
        return;
    }
    run.vlan_used |= id > 0;
    const char *wanted = id > 0 ? vlan : default_vlan;
    const Key key = slot.key("vlanid");
    // A text that the store refuses is no change: the device would restart for it
    // again and again.
    if (strcmp(store_get(key.text).text, wanted) == 0 || SetValue(key.text, wanted) == 0) {
        return;
    }
    run.vlan_changed = true;
    if (rules.keeps_vlan_backup) {
        slot.set("vlanid_bk", wanted);
    }
}

/** A cipher that the SSID does not name is that of the SSID before. */
void choose_cipher(const cJSON *ssid, SsidRun &run) {
    const int code = cJSON_GetObjectIntValue(ssid, "security", -1);
    if (code >= 0 && static_cast<size_t>(code) < ssid_ciphers.size()) {
        run.cipher = ssid_ciphers[static_cast<size_t>(code)];
    }
}

void apply_security(const Slot &slot, const cJSON *ssid, const SsidRules &rules,
                    const SsidRun &run) {
    constexpr std::array<const char *, ssid_encryptions.size()> names{"none !", "WPA-PSK !",
                                                                      "WPA2-PSK !"};
    constexpr int last_code = 4;  // 3 and 4 are run as WPA2-PSK, too
    const int code = cJSON_GetObjectIntValue(ssid, "encrypt", 0);
    if (code < 0 || code > last_code) {
        return;
    }
    const size_t mode = std::min(static_cast<size_t>(code), ssid_encryptions.size() - 1);
    const SsidEncryption &encryption = ssid_encryptions[mode];
    trace(rules, ",", names[mode], __LINE__);
    slot.set("security", encryption.security);
    if (encryption.type == nullptr) {
        return;
    }
    slot.set("wpapsk_type", encryption.type);
    slot.set("wpapsk_crypto", run.cipher);
    slot.set("wpapsk_psk", cJSON_GetObjectStringValue(ssid, "passwd", ""));
    slot.set_int("key_uptime", cJSON_GetObjectIntValue(ssid, "update_time", 0));
}

void apply_shut_off(const Slot &slot, const cJSON *ssid) {
    const int timed = cJSON_GetObjectIntValue(ssid, "time_close", 0);
    if (timed == 0 || timed == 1) {
        slot.set_int("nx.time_close", timed);
    }
    if (timed == 1) {
        slot.set("nx.timeval", cJSON_GetObjectStringValue(ssid, "timeval", ""));
    }
}

void apply_isolation(const Slot &slot, const cJSON *ssid) {
    const int isolated = cJSON_GetObjectIntValue(ssid, "client_quarantine", 0);
    if (isolated == 0 || isolated == 1) {
        slot.set_int("sta_isolate", isolated);
    }
}

void apply_ssid(const Band &band, const cJSON *ssid, const SsidRules &rules, SsidRun &run) {
    const Slot slot{band, cJSON_GetObjectIntValue(ssid, "ssididx", 0)};
    const int enable = cJSON_GetObjectIntValue(ssid, "ssidenable", 0);
    slot.set_int("enable", enable);
    if (enable == 0) {
        slot.set("nx.time_close", "0");
        return;
    }
    slot.set("ssid", cJSON_GetObjectStringValue(ssid, "ssid", ""));
    if (!rules.type_comes_last) {
        slot.set("type", "1");
    }
    slot.set("hide", cJSON_GetObjectIntValue(ssid, "hide", 0) != 0 ? "1" : "0");
    apply_vlan(slot, cJSON_GetObjectStringValue(ssid, "vlan", "0"), rules, run);
    choose_cipher(ssid, run);
    apply_security(slot, ssid, rules, run);
    slot.set_int("bss_maxassoc", cJSON_GetObjectIntValue(ssid, "max_conn", 0));
    apply_shut_off(slot, ssid);
    if (rules.isolates_stations) {
        apply_isolation(slot, ssid);
    }
    if (rules.type_comes_last) {
        slot.set("type", "1");
    }
}

/** Switches VLANs on once an SSID uses one and off when none does. */
void follow_vlan_use(const SsidRun &run) {
    if (strcmp(run.vlan_enable.text, run.vlan_used ? "0" : "1") == 0) {
        const char *wanted = run.vlan_used ? "1" : "0";
        store_set("wl.0.vlan.enable", wanted);
        store_set("qvlan_mode_enable", wanted);
    }
}

}  // namespace

int ssid_apply(const cJSON *config, const SsidRules &rules, SsidRun &run) {
    for (const Band &band : bands) {  // a third radio's "radio3" is not set
        const cJSON *ssids = json_get_array(config, band.ssid_array);
        if (ssids == nullptr) {
            nx_trace(rules.function, __LINE__, "the cJSON_GetObjectItem err!\n");
            continue;
        }
        size_t count = 0;
        for (const cJSON *ssid = ssids->child; ssid != nullptr && count < limits::ssid_elements;
             ssid = ssid->next, ++count) {
            apply_ssid(band, ssid, rules, run);
        }
        if (rules.follows_vlan_use) {
            follow_vlan_use(run);
        }
        if (commit_and_restart_wifi(band.number)) {
            continue;
        }
        trace(rules, " ", "commitcfm err! wifi not restart!", __LINE__);
        if (rules.stops_at_failed_commit) {
            return -1;
        }
    }
    return 0;
}
