/*
 * The functions of the contract. Each asks the transport in charge: a test's
 * local one, or the connection to the broker.
 */
#include "platform/nxapi.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "virtual/nxapi/identity.h"
#include "virtual/nxapi/registry.h"
#include "virtual/nxapi/transport.h"

namespace {

using nxapi::registry;

int upload(const char *call, const char *data, int length) {
    if (data == nullptr || length < 0) {
        return -1;
    }
    return nxapi::local_call(call, {data, static_cast<size_t>(length)}).value_or(-1);
}

int enable_family(const char *call, size_t family, const nx_slot *slots) {
    if (slots == nullptr) {
        return -1;
    }
    const int result = nxapi::local_call(call).value_or(-1);
    if (result != -1) {
        std::copy_n(slots, nxapi::families[family].slots, registry().tables[family].begin());
    }
    return result;
}

}  // namespace

extern "C" {

void assign_poll_start(nx_poll_start_fn start) {
    registry().poll_start = start;
    nxapi::local_call(__func__);
}

void assign_poll_stop(nx_poll_stop_fn stop) {
    registry().poll_stop = stop;
    nxapi::local_call(__func__);
}

int nx_api_lib_init(void) {
    return nxapi::local_call(__func__).value_or(-1);
}

void set_debug_level(int level) {
    nxapi::local_call(__func__, std::to_string(level));
}

int nx_api_enable_m_cloud_fun(const nx_slot *slots) {
    return enable_family(__func__, 0, slots);
}
int nx_api_enable_m_dev_fun(const nx_slot *slots) {
    return enable_family(__func__, 1, slots);
}
int nx_api_enable_m_net_fun(const nx_slot *slots) {
    return enable_family(__func__, 2, slots);
}
int nx_api_enable_m_wlan_fun(const nx_slot *slots) {
    return enable_family(__func__, 3, slots);
}

int nx_api_set_basic_info(const nx_basic_info *info) {
    if (info == nullptr) {
        return -1;
    }
    const std::string text = nxapi::identity_text(*info, nxapi::Credential::included);
    const int result = nxapi::local_call(__func__, text).value_or(-1);
    if (result != -1) {
        registry().set_serial = info->set_serial;
    }
    return result;
}

int nx_api_bind_info_upload(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_dir_info_set(const char *path, int length) {
    return upload(__func__, path, length);
}
int nx_api_config_upload(const char *data, int length) {
    return upload(__func__, data, length);
}
int nx_api_duplicate_config_upload(const char *data, int length) {
    return upload(__func__, data, length);
}
int nx_api_manage_info_upload(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_alarm_upload(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_sys_log_upload(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_sys_log_upload_v1(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_net_check_back(const char *text, int length) {
    return upload(__func__, text, length);
}
int nx_api_radio_optimiza_back(const char *text, int length) {
    return upload(__func__, text, length);
}
int dev_upgrade_notice(const char *text, int length) {
    return upload(__func__, text, length);
}

void updaet_local_wireless_timestamp(void) {
    nxapi::local_call(__func__);
}

}  // extern "C"
