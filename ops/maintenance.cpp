#include "ops/maintenance.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "json.h"
#include "notify.h"
#include "platform/apmib.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

/** Values of "mainetmode". */
enum Mode { off = 0, on_weekdays = 1, at_intervals = 2 };

/** One flag a weekday; days that the array lacks, and what is no number, are 0. */
std::array<int, 7> day_flags(const cJSON *repeat_day) {
    std::array<int, 7> flags{};
    const cJSON *day = repeat_day->child;
    for (int &flag : flags) {
        if (day == nullptr) {
            break;
        }
        flag = cJSON_IsNumber(day) ? json_int(day->valuedouble) : 0;
        day = day->next;
    }
    return flags;
}

/** Stores the flags, with the flag for "every day" in front. */
void store_days(const std::array<int, 7> &flags) {
    int common = ~0;
    for (const int flag : flags) {
        common &= flag;
    }
    char text[96];
    snprintf(text, sizeof text, "%d%d%d%d%d%d%d%d", common == 1 ? 1 : 0, flags[0], flags[1],
             flags[2], flags[3], flags[4], flags[5], flags[6]);
    store_set("sys.schedulereboot.wday", text);
}

}  // namespace

int mainet_schedule_reboot_parse(const cJSON *schedule) {
    const cJSON *repeat_day = json_get_array(schedule, "repeat_day");
    if (repeat_day == nullptr) {
        NX_TRACE("the cJSON_GetObjectItem err!\n");
        return -1;
    }
    store_days(day_flags(repeat_day));
    store_set("sys.schedulereboot.enable", "1");
    store_set("sys.schedulereboot.type", "1");
    store_set("sys.schedulereboot.start_time",
              cJSON_GetObjectStringValue(schedule, "start_time", "03:00"));
    return 0;
}

int mainet_cycle_reboot_parse(const cJSON *cycle) {
    store_set("sys.schedulereboot.enable", "1");
    store_set("sys.schedulereboot.type", "0");
    store_set_int("sys.schedulereboot.interval", cJSON_GetObjectIntValue(cycle, "timeval", 0));
    return 0;
}

void maintenance_apply(const cJSON *maint, const char *notice, const char *function) {
    const int mode = cJSON_GetObjectIntValue(maint, "mainetmode", -1);
    const int timestamp = cJSON_GetObjectIntValue(maint, "timestamp", -1);
    if (timestamp > 0) {
        store_set_int("nx.maint_timestamp", timestamp);
    }
    const cJSON *schedule = json_get_object(maint, "schedule_reboot");
    const cJSON *cycle = json_get_object(maint, "cycle_restart");
    switch (mode) {
        case off:
            store_set("sys.schedulereboot.enable", "0");
            break;
        case on_weekdays:
            if (schedule != nullptr) {
                mainet_schedule_reboot_parse(schedule);
            }
            break;
        case at_intervals:
            if (cycle != nullptr) {
                mainet_cycle_reboot_parse(cycle);
            }
            break;
        default:
            nx_trace(function, __LINE__, "the mainetmode is not support!\n");
            return;
    }
    if (CommitCfm() != 0) {
        send_msg_to_netctrl(netctrl::maintenance, notice);
    }
}

int config_maint_parse(const cJSON *maint) {
    maintenance_apply(maint, "op=3");
    return 0;
}
