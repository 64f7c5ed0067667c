#include <cinttypes>
#include <cstdio>

#include "json.h"
#include "measure/user_count.h"
#include "report/clients.h"
#include "report/config_report.h"
#include "report/uploads.h"
#include "store.h"

namespace {

/** Adds the stations and the empty list of an access point's WAN lines, which
 *  stands behind them. Null: out of memory. */
cJSON *add_stations(cJSON *response) {
    cJSON *user_info = json_add_object(response, "user_info");
    if (user_info == nullptr || json_add_array(response, "wan_info") == nullptr) {
        return nullptr;
    }
    cJSON *users = json_add_array(user_info, "user_list");
    if (users != nullptr) {
        simple_user_list_get(users);
        int stations = 0;
        user_num_get(&stations);
        json_add_number(user_info, "user_static", stations);
        json_add_string(user_info, "dev_type", "ap");
    }
    return users;
}

/** Adds the kibibytes counted under `key` since the report before, as a text, and
 *  starts the count again; the zero waits for somebody's commit. */
void add_flow(cJSON *throughput, JsonKey member, const char *key) {
    const StoreValue bytes = store_get(key);
    if (bytes.found) {
        store_set(key, "0");
    }
    char text[64];
    snprintf(text, sizeof text, "%" PRIu64, text_uint64(bytes.text) >> 10);
    json_add_string(throughput, member, text);
}

cJSON *add_throughput(cJSON *response) {
    cJSON *throughput = json_add_object(response, "throughput");
    if (throughput != nullptr) {
        add_flow(throughput, "up", "flow.up");
        add_flow(throughput, "down", "flow.down");
    }
    return throughput;
}

}  // namespace

int statistic_upload(cJSON *, cJSON *response) {
    if (json_made(add_stations(response)) == nullptr ||
        json_made(add_throughput(response)) == nullptr) {
        return -1;
    }
    cJSON *wireless = json_made(json_add_object(response, "wireless"));
    return wireless == nullptr ? -1 : wireless_info_get(wireless);
}
