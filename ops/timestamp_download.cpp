#include <array>
#include <cstdint>

#include "cloud/project.h"
#include "json.h"
#include "notify.h"
#include "ops/nx_dev_api.h"
#include "platform/nxapi.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

/** Where the stamp of each category stands; the position is the category's number
 *  and its bit in `answers`. */
constexpr std::array category_keys{"nx.net_timestamp", "nx.wireless_timestamp",
                                   "nx.maint_timestamp"};
using Stamps = std::array<int, category_keys.size()>;

/** What to download, by the bits of the categories that differ. */
constexpr std::array<const char *, 1U << category_keys.size()> answers{
    "",    "net", "wireless", "net,wireless", "devicemain", "net,devicemain", "wireless,devicemain",
    "all",
};

/** The cloud's stamps; 0 for a category that it does not name. */
Stamps server_stamps(const cJSON *time_array) {
    Stamps stamps{};
    const cJSON *element;
    cJSON_ArrayForEach(element, time_array) {
        const int mode = cJSON_GetObjectIntValue(element, "mode", 0);
        if (mode >= 0 && static_cast<size_t>(mode) < stamps.size()) {
            stamps[static_cast<size_t>(mode)] = cJSON_GetObjectIntValue(element, "timestamp", 0);
        }
    }
    return stamps;
}

/** Older or newer: any other stamp than the device's own differs. */
unsigned differing(const Stamps &stamps) {
    unsigned bits = 0;
    for (size_t i = 0; i < stamps.size(); ++i) {
        bits |= store_int(category_keys[i]) != stamps[i] ? 1U << i : 0U;
    }
    return bits;
}

/** Stores when the device booted, by the cloud's clock. */
void store_boot_time(int timestamp) {
    const int64_t boot = int64_t{timestamp} - system_get_uptime();
    store_set_int("sys.up.timestamp", static_cast<int32_t>(boot));
    updaet_local_wireless_timestamp();
}

}  // namespace

int timestamp_download(cJSON *request, cJSON *response) {
    const cJSON *time_array = json_get_array(request, "time_array");
    if (time_array == nullptr) {
        NX_TRACE("the cJSON_GetObjectItem err!\n");
        return -1;
    }
    const int timestamp = cJSON_GetObjectIntValue(request, "timestamp", 0);
    if (timestamp == 0) {
        NX_TRACE("get timestamp_gmt0 is err!\n");
        return -1;
    }
    store_boot_time(timestamp);
    store_set_int("sys.region_index", cJSON_GetObjectIntValue(request, "region", 38));
    if (set_timezone(cJSON_GetObjectStringValue(request, "time_zone", "+8")) == 0) {
        store_set("sys.timesyn", "1");
        commit_and_notify(netctrl::clock, 3);
    }
    const char *mode = answers[differing(server_stamps(time_array))];
    if (json_made(json_add_string(response, "mode", mode)) == nullptr ||
        json_made(json_add_number(response, "manage_mode", store_int("nx.manage.mode"))) ==
            nullptr) {
        return -1;
    }
    return 0;
}
