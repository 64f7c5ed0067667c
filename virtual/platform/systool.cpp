/**
 * System tools: restart, status, firmware writing, notices, logs.
 */
#include "platform/systool.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

#include "virtual/device/effect.h"
#include "virtual/device/machine.h"
#include "virtual/hardware/equipment.h"
#include "virtual/platform/field.h"

using vap::Json;
using vap::text_arg;

namespace {

int whole_seconds() {
    return static_cast<int>(static_cast<int64_t>(vap::uptime()));
}

bool others_stopped() {
    const std::shared_ptr<vap::Machine> device = vap::machine();
    if (!device) {
        return false;
    }
    const std::lock_guard lock(device->processes.mutex);
    return device->processes.others_stopped;
}

}  // namespace

extern "C" {

int systool_sys_handle(int action) {
    return vap::effect("systool_sys_handle", Json::array({action}), -1, [&] {
        if (action != SYSTOOL_REBOOT && action != SYSTOOL_RESTORE_FACTORY) {
            return -1;
        }
        return vap::restart_device(action == SYSTOOL_RESTORE_FACTORY) ? 0 : -1;
    });
}

void systool_reboot_if_necessary(void) {
    vap::effect("systool_reboot_if_necessary", Json::array());
    if (others_stopped()) {
        vap::restart_device(false);
    }
}

long system_get_uptime(void) {
    return whole_seconds();
}

void system_init_core_dump(void) {
    vap::effect("system_init_core_dump", Json::array(), -1, [] {
        rlimit limit{};
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        return setrlimit(RLIMIT_CORE, &limit);
    });
}

int systool_sys_status_get(const char *, sys_status *status) {
    if (const std::optional<long> fault = vap::due_fault("systool_sys_status_get", -1)) {
        return static_cast<int>(*fault);
    }
    *status = {};
    const vap::SystemState system = vap::equipment_now()->system;
    status->cpu = system.cpu;
    status->run_time = whole_seconds();
    status->mem = system.mem;
    status->rom = system.rom;
    vap::fill(status->version, system.version + "\n");
    return 0;
}

unsigned long systool_get_free_memory_size(void) {
    if (const std::optional<long> fault = vap::due_fault("systool_get_free_memory_size", 0)) {
        return static_cast<unsigned long>(*fault);
    }
    const vap::Memory memory = vap::equipment_now()->memory;
    constexpr uint64_t most = std::numeric_limits<unsigned long>::max();
    const uint64_t freed = others_stopped() ? memory.freed_by_stopping : 0;
    const uint64_t all = memory.free + freed;
    return static_cast<unsigned long>(all < freed ? most : std::min(all, most));
}

int systool_write_image_ap(const char *path, int type) {
    const int result =
        vap::effect("systool_write_image_ap", Json::array({text_arg(path), type}), -1, [&] {
            return path != nullptr && vap::write_flash(path) && vap::restart_device(false) ? 0 : -1;
        });
    const std::shared_ptr<vap::Machine> device = vap::machine();
    while (result == 0 && device && device->options.restarts_process) {
        device->clock.sleep_ns(1'000'000'000);  // the restart ends the process
    }
    return result;
}

int systool_kill_all_process(int mode, const char *spare) {
    return vap::effect("systool_kill_all_process", Json::array({mode, text_arg(spare)}), -1, [&] {
        const std::shared_ptr<vap::Machine> device = vap::machine();
        if (!device || mode != 1) {
            return -1;
        }
        const std::lock_guard lock(device->processes.mutex);
        device->processes.others_stopped = true;
        device->processes.spared = {spare == nullptr ? "" : spare};
        std::erase_if(device->processes.started, [&](const std::string &name) {
            return !device->processes.spared.contains(name);
        });
        return 0;
    });
}

int send_msg_to_netctrl(int module, const char *text) {
    return vap::effect("send_msg_to_netctrl", Json::array({module, text_arg(text)}));
}

int send_wifi_msg_handle(int message, int band) {
    return vap::effect("send_wifi_msg_handle", Json::array({message, band}));
}

int file_syslog_get_lists(syslog_record *records, int first, int *count, int max) {
    if (const std::optional<long> fault = vap::due_fault("file_syslog_get_lists", -1)) {
        return static_cast<int>(*fault);
    }
    const std::optional<std::vector<vap::LogRecord>> log = vap::equipment_now()->syslog;
    if (first < 0 || max < 0 || !log) {
        return -1;
    }
    const size_t wanted = log->size() - std::min(static_cast<size_t>(first), log->size());
    const size_t rows = std::min(static_cast<size_t>(max), wanted);
    for (size_t i = 0; i < rows; ++i) {
        const vap::LogRecord &row = (*log)[log->size() - rows + i];
        records[i] = {};
        vap::fill(records[i].time, row.time);
        records[i].type = row.type;
        vap::fill(records[i].event, row.event);
    }
    *count = static_cast<int>(rows);
    return 0;
}

void log_debug_print(const char *function, int line, int level, int module, const char *format,
                     ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    vap::effect("log_debug_print",
                Json::array({text_arg(function), line, level, module, text_arg(text)}));
}

}  // extern "C"
