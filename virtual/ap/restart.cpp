/**
 * The end of the device's life: restart and factory restore.
 */
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "virtual/ap/machine.h"

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
    const Inside inside;
    std::this_thread::sleep_for(grace);
    if (device->restart == 2) {
        restore_defaults(*device);
    }
    _exit(exit_restart);
}

}  // namespace

void restart_device(bool restore) {
    const std::shared_ptr<Machine> device = machine();
    if (!device || !device->options.restarts_process) {
        return;
    }
    const Inside inside;
    const int wanted = restore ? 2 : 1;
    const int before = device->restart.exchange(wanted);
    if (before > wanted) {
        device->restart = before;
    }
    if (before == 0) {
        std::thread(end_process, device).detach();
    }
}

}  // namespace vap
