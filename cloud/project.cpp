#include "cloud/project.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "json.h"
#include "notify.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

/** Radio regulation of a device that joins a new project. The 5 GHz radio runs
 *  on "US" and converts to "CN" on purpose. */
constexpr std::array country_settings{
    Setting{"wl2g.public.country_code", "CN"},         Setting{"wl2g.public.countrycode_all", "1"},
    Setting{"wl2g.public.countrycode_other", "1"},     Setting{"wl5g.public.country_code", "US"},
    Setting{"wl5g.public.country_code_convert", "CN"}, Setting{"wl5g.public.countrycode_all", "1"},
    Setting{"wl5g.public.countrycode_other", "1"},
};

/** A device without a project. Country codes and management mode stay. */
constexpr std::array unbound_settings{
    Setting{"nx.manage.en", "0"},
    Setting{"nx.manage.status", "0"},
    Setting{"nx.cloud.id", ""},
    Setting{"nx.project.id", ""},
    Setting{"nx.bind_status", "0"},
    Setting{"nx.msgreport", "0"},
    Setting{"sys.region_index", "38"},
    Setting{"sys.timezone", "20"},
    Setting{"sys.timesyn", "0"},
    Setting{"sys.schedulereboot.enable", "0"},
    Setting{"sys.schedulereboot.type", "0"},
    Setting{"sys.schedulereboot.interval", "1440"},
    Setting{"sys.schedulereboot.start_time", "3:00"},
    Setting{"sys.schedulereboot.wday", "0000000"},
};

bool joins_new_project(int project_id) {
    char wanted[16];
    snprintf(wanted, sizeof wanted, "%d", project_id);
    return strcmp(store_get("nx.project.id").text, wanted) != 0;
}

}  // namespace

int get_sky_mode() {
    return store_int("nx.manage.en") == 0 ? sky_mode::off : store_int("nx.manage.mode");
}

int set_timezone(const char *text) {
    const auto zone = static_cast<float>(strtod(text, nullptr) + 12.0);
    if (!std::isfinite(zone)) {
        return -1;
    }
    char value[64];
    snprintf(value, sizeof value, "%.2f", static_cast<double>(zone));
    removeLastZero(value);
    if (strcmp(value, store_get("sys.timezone").text) == 0) {
        return -1;
    }
    NX_TRACE("set timezone:%s\n", value);
    store_set("sys.timezone", value);
    return 0;
}

int norvex_set_lan_dhcp() {
    if (monitor_check_exist("dhcpcd_ac") == 0 && monitor_check_exist("dhcpcd_lan") == 0) {
        store_set("lan.type", "0");
        commit_and_notify(netctrl::lan, 0);
    }
    return 0;
}

int add_router_to_prj(cJSON *request, cJSON *response) {
    const char *cloud_id = cJSON_GetObjectStringValue(request, "cloud_id", "");
    const int project_id = cJSON_GetObjectIntValue(request, "project_id", 0);
    store_set_int("sys.region_index", cJSON_GetObjectIntValue(request, "region", 38));
    set_timezone(cJSON_GetObjectStringValue(request, "time_zone", "+8"));
    if (joins_new_project(project_id)) {
        store_apply(country_settings);
    }
    store_set("nx.manage.en", "1");
    store_set("nx.cloud.id", cloud_id);
    store_set_int("nx.project.id", project_id);
    store_set("nx.msgreport", "1");
    store_set("nx.bind_status", "1");
    if (!store_get("nx.manage.mode").found) {
        store_set("nx.manage.mode", "1");
    }
    if (store_int("wl.identifyOS_en") == 0) {
        store_set("wl.identifyOS_en", "1");
        send_msg_to_netctrl(netctrl::identify_os, nullptr);
    }
    store_set("sys.timesyn", "1");
    if (!commit_and_notify(netctrl::clock, 3)) {
        json_add(response, "cloud_id", Json(cJSON_CreateNull()));
        json_add(response, "project_id", Json(cJSON_CreateNull()));
        return -1;
    }
    json_add_string(response, "cloud_id", cloud_id);
    json_add_number(response, "project_id", project_id);
    return 0;
}

int del_router_from_prj(cJSON *, cJSON *) {
    store_apply(unbound_settings);
    CommitCfm();
    notify_op(netctrl::clock, 2);
    notify_op(netctrl::cloud, 3);
    return 0;
}

int server_status(cJSON *request, cJSON *) {
    // The cloud sends 1 for "reachable"; the store holds 0 for it.
    const bool reachable = cJSON_GetObjectIntValue(request, "cloud_status", 1) == 1;
    store_set("nx.manage.status", reachable ? "0" : "1");
    CommitCfm();
    return 0;
}

int app_open_cloud(cJSON *request, cJSON *response) {
    const char *cloud_id = cJSON_GetObjectStringValue(request, "cloud_id", "");
    store_set("nx.manage.en", "1");
    store_set("nx.cloud.id", cloud_id);
    store_set("nx.msgreport", "1");
    norvex_set_lan_dhcp();
    const bool committed = CommitCfm() != 0;
    json_add(response, "cloud_id",
             Json(committed ? cJSON_CreateString(cloud_id) : cJSON_CreateNull()));
    notify_op(netctrl::cloud, 3);
    return committed ? 0 : -1;
}
