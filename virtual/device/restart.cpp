/**
 * The end of the device's life: restart and factory restore.
 */
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "virtual/device/machine.h"

namespace vap {
namespace {

/** Real time in which an answer that is under way still leaves. */
constexpr std::chrono::milliseconds grace{300};

void restore_defaults(Machine &device) {
    const std::string model = device.factory.get("ZQ_ATE_MODEL").value_or("ZX-A5");
    if (!device.config.replace(default_configuration(model))) {
        fprintf(stderr, "vap: the configuration could not be restored\n");
    }
}

void end_process(const std::shared_ptr<Machine> &device) {
    std::this_thread::sleep_for(grace);
    if (device->restart == 2) {
        restore_defaults(*device);
    }
    _exit(exit_restart);
}

}  // namespace

bool restart_device(bool restore) {
    const std::shared_ptr<Machine> device = machine();
    if (!device) {
        return false;
    }
    const Inside inside;
    const int wanted = restore ? 2 : 1;
    int before = 0;
    while (before < wanted && !device->restart.compare_exchange_weak(before, wanted)) {
    }
    if (before != 0 || !device->options.restarts_process) {
        return true;
    }
    std::thread thread;
    if (!start_thread(thread, "restart", [device] { end_process(device); })) {
        device->restart = 0;
        return false;
    }
    thread.detach();
    return true;
}

}  // namespace vap
