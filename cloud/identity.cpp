#include "cloud/identity.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "alarm/alarm.h"
#include "json.h"
#include "mac.h"
#include "model.h"
#include "notify.h"
#include "nx_limits.h"
#include "platform/netif.h"
#include "platform/nxapi.h"
#include "store.h"
#include "thread.h"
#include "trace.h"

namespace {

constexpr int device_type_access_point = 2;
constexpr size_t serial_characters = 32;

/** Called by the library when the cloud assigns a serial number. */
extern "C" int store_serial(void *, int, const char *serial, void *) {
    if (ApmibSetValue("ZQ_ATE_SN", serial) != 0) {
        ApmibCommitCfm();
    }
    return 0;
}

void firmware_version(char *field, size_t size) {
    if (!store_text("norvex.fw.ver", field, size)) {
        snprintf(field, size, "%s(%s)", "V1.0.0.11", "10862");
    }
}

void *set_dir_info(void *) {
    sleep(limits::image_path_delay_seconds);
    char path[256] = "/tmp/image";
    if (nx_api_dir_info_set(path, sizeof path) == -1) {
        NX_TRACE("nx_api_dir_info_set err!\n");
    } else {
        NX_TRACE("nx_api_dir_info_set succeed! path:%s\n", path);
    }
    return nullptr;
}

void *log_info_upload(void *) {
    for (;;) {
        norvex_add_timer();
        sleep(limits::beat_seconds);
    }
}

}  // namespace

int set_basic_info() {
    nx_basic_info info{};
    string_upper_mac(lan_mac_text(MacStyle::lower_digits).text, info.mac);
    firmware_version(info.firmware_version, sizeof info.firmware_version);
    text_copy(info.hardware_version, "0.0.0.0");
    factory_text("ZQ_ATE_SN", info.serial, serial_characters + 1);
    info.manage_en = store_int("nx.manage.en");
    info.device_type = device_type_access_point;
    info.set_serial = store_serial;
    text_copy(info.brand, "KALDEN");
    model_name(info.model);
    text_copy(info.credential, "qzvur");
    if (nx_api_set_basic_info(&info) == -1) {
        NX_TRACE("nx_api_set_basic_info err!\n");
        return -1;
    }
    NX_TRACE("nx_api_set_basic_info succeed!\n");
    if (info.manage_en != 0) {
        store_set("sys.timesyn", "1");
        commit_and_notify(netctrl::clock, 3);
    }
    return 0;
}

int set_bind_info() {
    const Json document = json_object();
    if (!document) {
        NX_TRACE("Create cJSON is null!\n");
        return -1;
    }
    char cloud_id[64];
    char url[32];
    store_text("nx.cloud.id", cloud_id);
    store_text("nx.url", url);
    cJSON *object = document.get();
    const int cloud_manage = store_int("nx.manage.en") != 0 ? 1 : 2;
    const bool complete =
        json_add_number(object, "cloud_manage", cloud_manage) != nullptr &&
        json_add_number(object, "manage", store_int("nx.manage.mode")) != nullptr &&
        json_add_string(object, "cloud_id", cloud_id) != nullptr &&
        json_add_number(object, "project_id", store_int("nx.project.id")) != nullptr &&
        json_add_string(object, "url", url) != nullptr &&
        json_add_number(object, "bind_status", store_int("nx.bind_status")) != nullptr;
    if (!complete) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    const JsonText text = json_print(document);
    if (!text) {
        NX_TRACE("print cJSON is null!\n");
        return -1;
    }
    if (nx_api_bind_info_upload(text.get(), static_cast<int>(strlen(text.get()))) == -1) {
        NX_TRACE("nx_api_bind_info_upload err!\n");
        return -1;
    }
    NX_TRACE("nx_api_bind_info_upload succeed!\n");
    return 0;
}

void set_upgrade_path_info() {
    if (!start_detached("imagepath", set_dir_info)) {
        NX_TRACE("pthread create err!\n");
    }
}

int nx_log_upload_init() {
    if (!start_detached("beat", log_info_upload)) {
        NX_TRACE("pthread create err!\n");
    }
    return 0;
}

int norvex_add_timer() {
    api_alarm_upload();
    return sys_log_upload();
}
