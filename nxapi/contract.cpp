/*
 * The functions of the contract. A process that is local hands each to the sink of
 * its test; otherwise the client that is linked to the broker takes it.
 */
#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "nxapi/client.h"
#include "nxapi/identity.h"
#include "nxapi/log.h"
#include "nxapi/registry.h"
#include "nxapi/transport.h"
#include "platform/nxapi.h"

namespace {

using nxapi::Client;
using nxapi::Level;
using nxapi::registry;

/** Lives as long as the process: its thread must not lose it when `exit` runs. */
std::atomic<Client *> cloud{nullptr};

/** Runs a function of the contract: nothing that is thrown reaches the agent. */
template <typename Call>
int guarded(Call call) noexcept {
    try {
        return call();
    } catch (const std::exception &problem) {
        nxapi::say(Level::error, "%s", problem.what());
        return -1;
    }
}

/** The result of a call when a test decides it: its sink, or a fault of the settings. */
std::optional<int> decided(const char *call, std::string_view data = {}) {
    if (const auto result = nxapi::local_call(call, data)) {
        return result;
    }
    const Client *client = cloud.load(std::memory_order_acquire);
    return client == nullptr ? std::nullopt : client->fault(call);
}

int upload(const char *call, const char *kind, std::string_view data, std::string_view payload) {
    return guarded([&] {
        if (const auto result = decided(call, data)) {
            return *result;
        }
        Client *client = cloud.load(std::memory_order_acquire);
        return client != nullptr && client->upload(kind, payload) ? 0 : -1;
    });
}

/** An upload of bytes, which go as they are. */
int upload_bytes(const char *call, const char *kind, const char *data, int length) {
    if (data == nullptr || length < 0) {
        return -1;
    }
    const std::string_view bytes(data, static_cast<size_t>(length));
    return upload(call, kind, bytes, bytes);
}

/** An upload of a text, which ends at its first NUL where the length counts more. */
int upload_text(const char *call, const char *kind, const char *text, int length) {
    if (text == nullptr || length < 0) {
        return -1;
    }
    const std::string_view bytes(text, static_cast<size_t>(length));
    return upload(call, kind, bytes, bytes.substr(0, bytes.find('\0')));
}

int enable_family(const char *call, size_t family, const nx_slot *slots) {
    if (slots == nullptr) {
        return -1;
    }
    return guarded([&] {
        const int result = decided(call).value_or(0);
        if (result != -1) {
            std::copy_n(slots, nxapi::families[family].slots, registry().tables[family].begin());
        }
        return result;
    });
}

int on_commands(void *, int, int) {
    return guarded([] {
        cloud.load(std::memory_order_relaxed)->dispatch();
        return 0;
    });
}

int init() {
    if (const auto result = nxapi::local_call("nx_api_lib_init")) {
        return *result;
    }
    if (cloud.load(std::memory_order_relaxed) != nullptr) {
        nxapi::say(Level::error, "the library is initialised a second time");
        return -1;
    }
    nxapi::Settings settings;
    std::string why;
    const nxapi::SettingsFile file = nxapi::read_settings(nxapi::settings_path, settings, why);
    if (file == nxapi::SettingsFile::malformed) {
        nxapi::say(Level::error, "%s", why.c_str());
        return -1;
    }
    if (settings.brokers.empty()) {
        nxapi::say(Level::error, "no cloud: %s",
                   why.empty() ? "the settings name no broker" : why.c_str());
    }
    auto client = std::make_unique<Client>(std::move(settings), registry());
    if (const auto result = client->fault("nx_api_lib_init")) {
        return *result;
    }
    const nx_poll_start_fn watch = registry().poll_start;
    if (!client->start() || watch == nullptr ||
        watch(client->fd(), NX_POLL_READ, on_commands) == -1) {
        nxapi::say(Level::error, "the system has no descriptor, memory or thread left");
        return -1;
    }
    cloud.store(client.release(), std::memory_order_release);
    return 0;
}

int set_basic_info(const nx_basic_info &info) {
    constexpr const char *call = "nx_api_set_basic_info";
    registry().set_serial = info.set_serial;
    const std::string text = nxapi::identity_text(info, nxapi::Credential::included);
    if (const auto result = decided(call, text)) {
        return *result;
    }
    Client *client = cloud.load(std::memory_order_relaxed);
    return client != nullptr && client->introduce(info) ? 0 : -1;
}

}  // namespace

namespace nxapi {

void close_cloud() {
    delete cloud.exchange(nullptr);
}

}  // namespace nxapi

extern "C" {

void assign_poll_start(nx_poll_start_fn start) {
    registry().poll_start = start;
    guarded([] { return decided("assign_poll_start").value_or(0); });
}

void assign_poll_stop(nx_poll_stop_fn stop) {
    registry().poll_stop = stop;
    guarded([] { return decided("assign_poll_stop").value_or(0); });
}

int nx_api_lib_init(void) {
    return guarded(init);
}

void set_debug_level(int level) {
    nxapi::set_level(level);
    guarded([&] { return decided("set_debug_level", std::to_string(level)).value_or(0); });
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
    return info == nullptr ? -1 : guarded([&] { return set_basic_info(*info); });
}

int nx_api_bind_info_upload(const char *text, int length) {
    return upload_text(__func__, "up/binding", text, length);
}
int nx_api_dir_info_set(const char *path, int length) {
    return upload_text(__func__, "up/image_path", path, length);
}
int nx_api_config_upload(const char *data, int length) {
    return upload_bytes(__func__, "up/config", data, length);
}
int nx_api_duplicate_config_upload(const char *data, int length) {
    return upload_bytes(__func__, "up/config_copy", data, length);
}
int nx_api_manage_info_upload(const char *text, int length) {
    return upload_text(__func__, "up/manage", text, length);
}
int nx_api_alarm_upload(const char *text, int length) {
    return upload_text(__func__, "up/alarm", text, length);
}
int nx_api_sys_log_upload(const char *text, int length) {
    return upload_text(__func__, "up/system_log", text, length);
}
int nx_api_sys_log_upload_v1(const char *text, int length) {
    return upload_text(__func__, "up/running_log", text, length);
}
int nx_api_net_check_back(const char *text, int length) {
    return upload_text(__func__, "up/net_check", text, length);
}
int nx_api_radio_optimiza_back(const char *text, int length) {
    return upload_text(__func__, "up/radio_optimization", text, length);
}
int dev_upgrade_notice(const char *text, int length) {
    return upload_text(__func__, "up/upgrade", text, length);
}

// The stamp of the local settings is the agent's own: this library keeps none.
void updaet_local_wireless_timestamp(void) {
    guarded([] { return decided("updaet_local_wireless_timestamp").value_or(0); });
}

}  // extern "C"
