/**
 * One virtual access point over one folder, and which one is current.
 */
#ifndef VIRTUAL_DEVICE_MACHINE_H
#define VIRTUAL_DEVICE_MACHINE_H

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "virtual/device/clock.h"
#include "virtual/device/device.h"
#include "virtual/device/fault.h"
#include "virtual/folder/hardware.h"
#include "virtual/folder/journal.h"
#include "virtual/folder/store.h"

namespace vap {

/** Daemons under the process monitor: those that hardware.json names and those
 *  that the agent started, less those that it ended. */
struct Processes {
    std::mutex mutex;
    std::set<std::string> started;
    std::set<std::string> unsupervised;
    std::set<std::string> spared; /**< names that survived a kill of all others */
    bool others_stopped = false;
};

/** The switch's counter file: ports selected by writes to `selection`. */
struct CounterFile {
    std::mutex mutex;
    Descriptor selection; /**< read end of a pipe */
    Descriptor writer;    /**< write end, handed out as duplicates */
    int port = 0;
};

struct Machine {
    /** Throws std::runtime_error with a sentence when the folder is unusable. */
    Machine(const std::filesystem::path &where, const Options &how);

    /** The result of a call that is planned to fail now, see `vap::due_fault`. */
    std::optional<long> due_fault(const char *op, long failure);

    const std::filesystem::path folder;
    const Options options;
    Store config;
    Store factory;
    Hardware hardware;
    Journal journal;
    Faults faults;
    Processes processes;
    CounterFile counters;
    Clock &clock; /**< never freed: sleeping threads stay in it */

    std::mutex closing_mutex;
    std::vector<std::function<void()>> closing;
    std::atomic<int> restart{0}; /**< 1: asked for, 2: with factory defaults */
};

/** The current device; null when there is none. */
std::shared_ptr<Machine> machine();

/** Opens the device that the environment names unless one is open, and keeps others
 *  from running it: VAP_DEVICE its folder, VAP_SPEED how fast its time passes,
 *  VAP_TRACE (any value) to show "nx.debug" as 1. Throws std::runtime_error with a
 *  sentence. */
void open_from_environment();

/** Configuration of a device that is new or restored. */
Values default_configuration(const std::string &model);

}  // namespace vap

#endif
