/**
 * Process monitor: the daemons that run beside the agent. They are names only;
 * hardware.json lists those that run from the start under "processes".
 */
#include <algorithm>
#include <string>

#include "platform/systool.h"
#include "virtual/device/effect.h"
#include "virtual/device/machine.h"
#include "virtual/hardware/equipment.h"

using vap::Json;
using vap::text_arg;

namespace {

/** First word of a command line, without its folder. */
std::string process_name(const std::string &command_line) {
    const std::string program = command_line.substr(0, command_line.find(' '));
    return program.substr(program.rfind('/') + 1);
}

bool listed(const std::string &name) {
    const vap::EquipmentLock equipment = vap::equipment_now();
    return std::ranges::find(equipment->processes, name) != equipment->processes.end();
}

bool running(vap::Machine &device, const std::string &name) {
    const bool described = listed(name);
    vap::Processes &processes = device.processes;
    const std::lock_guard lock(processes.mutex);
    if (processes.started.contains(name)) {
        return true;
    }
    const bool ended = processes.others_stopped && !processes.spared.contains(name);
    return described && !ended && !processes.unsupervised.contains(name);
}

}  // namespace

extern "C" {

int monitor_check_exist(const char *name) {
    if (const std::optional<long> fault = vap::due_fault("monitor_check_exist", 0)) {
        return static_cast<int>(*fault);
    }
    const std::shared_ptr<vap::Machine> device = vap::machine();
    return device && name != nullptr && running(*device, name);
}

int monitor_mstart(const char *command_line) {
    return vap::effect("monitor_mstart", Json::array({text_arg(command_line)}), -1, [&] {
        const std::shared_ptr<vap::Machine> device = vap::machine();
        const std::string name = process_name(command_line == nullptr ? "" : command_line);
        if (!device || name.empty()) {
            return -1;
        }
        const std::lock_guard lock(device->processes.mutex);
        device->processes.started.insert(name);
        return 0;
    });
}

int monitor_stop(const char *name) {
    return vap::effect("monitor_stop", Json::array({text_arg(name)}), -1, [&] {
        const std::shared_ptr<vap::Machine> device = vap::machine();
        if (!device || name == nullptr) {
            return -1;
        }
        const std::lock_guard lock(device->processes.mutex);
        device->processes.started.erase(name);
        device->processes.unsupervised.insert(name);
        return 0;
    });
}

}  // extern "C"
