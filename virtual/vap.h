/**
 * Control of virtual access points, for tests, benchmarks and tools. A process
 * has one current device; each device is one record over one folder.
 */
#ifndef VIRTUAL_VAP_H
#define VIRTUAL_VAP_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "virtual/folder/json.h"

namespace vap {

/** How a device's time passes. */
enum class Time {
    real,  /**< with the machine's clock, times a speed factor */
    manual /**< only when `advance` or a sleep of the main thread moves it */
};

struct Options {
    Time time = Time::real;
    double speed = 1.0;
    int64_t epoch = 1'700'000'000; /**< clock of a manual device at its start, seconds */
    bool restarts_process = true;  /**< a restart of the device ends the process */
};

/** Writes a new device folder: factory values, default configuration and
 *  hardware. Throws std::runtime_error with a sentence when it cannot. */
struct NewDevice {
    std::string serial; /**< 1 to 32 letters, digits or "-"; empty: any */
    std::string model = "ZX-A5";
};
void create_device(const std::filesystem::path &folder, const NewDevice &options);

/** Makes the folder's device the current one of the process, with uptime 0. */
void open_device(const std::filesystem::path &folder, const Options &options = {});

/** Lets go of the current device; waits until no worker thread of the agent is
 *  left that could still use it. Sleeping ones stay asleep for ever. */
void close_device();

/** Folder of the current device. */
std::filesystem::path folder();

/** Moves a manual clock, waking each sleeper at its own moment, in order, and
 *  waiting until every woken thread sleeps again or has ended. A thread that the
 *  agent starts under a manual clock begins to run here too: at once in device
 *  time, but only when the clock is moved or settled, or the main thread sleeps. */
void advance(double seconds);

/** Lets every other thread of the agent run until it sleeps or has ended. */
void settle();

/** Committed and pending configuration of the current device. */
std::optional<std::string> config_get(const std::string &key);
void config_set(const std::string &key, const std::string &value); /**< committed at once */

/** The hardware description: the whole document, and a change of it by JSON
 *  merge patch, seen by the next platform call. */
Json hardware();
void patch_hardware(const Json &patch);

/** The journal of this device so far, one object a line, and a fresh start. */
std::vector<Json> journal();
void clear_journal();

/** Appends a line, for a test that puts its own events in order. */
void note(const std::string &op, Json args, Json result = nullptr);

/** Makes the `nth` call from now (1: the next) of a platform function or
 *  interposed call ("*": of any of them) fail, and `times` in all (-1: for ever). The failing call
 *  returns the contract's failure value, or `result` where one is given. */
void fail(const std::string &op, int nth = 1, int times = 1,
          std::optional<long> result = std::nullopt);

/** Drops the faults that `fail` planned; true when one of them was still to come. */
bool forget_faults();

/** Sends a message of the topology module to its subscribers, on the bus's
 *  thread, and waits until they have returned. */
void bus_event(const std::string &topic, const std::string &text);

}  // namespace vap

#endif
