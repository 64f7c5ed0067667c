#include "wireless/vlan_decision.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "band.h"
#include "platform/systool.h"
#include "trace.h"

namespace {

enum class When { used, unused, changed };

/** One thing to do: settings, a commit and a restart of the device. */
struct Step {
    When when;
    std::span<const Setting> settings = {};
    bool frees_ssids = false;                  /**< every SSID goes back to the default VLAN */
    bool commits = true;                       /**< the device restarts only when that succeeds */
    std::span<const Setting> uncommitted = {}; /**< set between commit and restart */
    const char *message = "vlanEn is change, system start reboot...\n";
};

constexpr std::array vlan_on{Setting{"wl.0.vlan.enable", "1"}};
constexpr std::array vlan_off{Setting{"wl.0.vlan.enable", "0"}};
constexpr std::array switch_on{Setting{"qvlan_mode_enable", "1"}};
constexpr std::array switch_off{Setting{"qvlan_mode_enable", "0"}};
constexpr std::array both_on{vlan_on[0], switch_on[0]};

constexpr std::array start_vlan{
    Step{.when = When::used, .settings = both_on, .uncommitted = vlan_on},
};
constexpr std::array end_switch_vlan{
    Step{.when = When::unused, .settings = switch_off, .frees_ssids = true},
    Step{.when = When::changed},
};
constexpr std::array start_switch_vlan{
    Step{.when = When::used, .settings = switch_on},
};
constexpr std::array end_vlan{
    Step{.when = When::unused, .settings = vlan_off},
    Step{.when = When::changed,
         .commits = false,
         .message = "vlanEn mib is change, system start reboot...\n"},
};

enum class Is { any, on, off };

/** What to do in one state of the three keys. */
struct Row {
    Is vlan_enable; /**< at the start of the call; on: any number but 0 */
    Is iptv_enable; /**< on: "1" */
    Is qvlan_mode_enable;
    std::span<const Step> steps;
};
constexpr std::array rows{
    Row{Is::off, Is::any, Is::any, start_vlan},
    Row{Is::on, Is::on, Is::on, end_switch_vlan},
    Row{Is::on, Is::on, Is::off, start_switch_vlan},
    Row{Is::on, Is::off, Is::on, end_vlan},
    Row{Is::on, Is::off, Is::off, {}},
};

constexpr bool fits(Is wanted, bool on) {
    return wanted == Is::any || (wanted == Is::on) == on;
}

constexpr bool fits(const Row &row, bool vlan, bool iptv, bool qvlan) {
    return fits(row.vlan_enable, vlan) && fits(row.iptv_enable, iptv) &&
           fits(row.qvlan_mode_enable, qvlan);
}

/** One row, neither more nor less, fits each state of the three keys. */
constexpr bool rows_are_sound() {
    for (int state = 0; state < 8; ++state) {
        const auto count = std::ranges::count_if(rows, [=](const Row &row) {
            return fits(row, (state & 4) != 0, (state & 2) != 0, (state & 1) != 0);
        });
        if (count != 1) {
            return false;
        }
    }
    return true;
}
static_assert(rows_are_sound());

bool is_one(const char *key) {
    return strcmp(store_get(key).text, "1") == 0;
}

bool due(const Step &step, const SsidRun &run) {
    switch (step.when) {
        case When::used:
            return run.vlan_used;
        case When::unused:
            return !run.vlan_used;
        case When::changed:
            return run.vlan_changed;
    }
    return false;
}

void free_ssids(const Band &band) {
    for (int slot = 0; slot < band.slots; ++slot) {
        store_set(ssid_key(band, slot, "vlanid").text, default_vlan);
    }
}

void take(const Step &step) {
    store_apply(step.settings);
    if (step.frees_ssids) {
        free_ssids(bands[1]);
        free_ssids(bands[0]);
    }
    if (step.commits && CommitCfm() == 0) {
        return;
    }
    store_apply(step.uncommitted);
    NX_TRACE_AS("config_wifi_wireless_parse", "%s", step.message);
    systool_sys_handle(SYSTOOL_REBOOT);
}

}  // namespace

void decide_vlan(const SsidRun &run) {
    const bool vlan = text_int(run.vlan_enable.text) != 0;
    const bool iptv = is_one("iptv_enable");
    const bool qvlan = is_one("qvlan_mode_enable");
    const auto *row = std::ranges::find_if(
        rows, [=](const Row &candidate) { return fits(candidate, vlan, iptv, qvlan); });
    for (const Step &step : row->steps) {
        if (due(step, run)) {
            take(step);
        }
    }
}
