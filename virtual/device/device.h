/**
 * What the parts of the virtual access point share.
 */
#ifndef VIRTUAL_DEVICE_DEVICE_H
#define VIRTUAL_DEVICE_DEVICE_H

#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "virtual/inside.h"
#include "virtual/vap.h"

namespace vap {

/** Exit status of a process whose device restarts; its supervisor starts the
 *  agent again on the same folder. */
constexpr int exit_restart = 75;

/** Appends an effect of the agent to the journal: `op` is the platform function
 *  or interposed call, `args` its arguments in the call's order. */
void record(const char *op, Json args, Json result);

/** A planned fault of this call, if one is due: the result to return. Counts
 *  the call; ask once a call. `failure` is the contract's failure value. */
std::optional<long> due_fault(const char *op, long failure);

/** Text argument of a journal line: null for a null pointer; bytes that are no
 *  UTF-8 text as lower-case hex. */
Json text_arg(const char *text);
Json bytes_arg(const void *data, size_t length);

/** The hardware description, null without a device. The file is read again when it
 *  has changed. */
Json hardware_description();

/** Number that changes whenever the hardware description was read again; lets a
 *  part keep records of its own instead of asking for JSON at each call. */
uint32_t hardware_generation();

/** Seconds since the device's start, and the device's clock (seconds since the
 *  epoch), both in virtual time. */
double uptime();
double now();

/** The file of the device folder that stands for an absolute device path. */
std::filesystem::path host_path(const std::string &device_path);

/** Is it one of the fixed device paths that the agent uses (a path that the
 *  interposed calls put into the folder)? */
bool is_device_path(const std::string &path);

/** Runs a shell command inside the device folder the way `popen` and
 *  `doSystemCmd` of the agent do: device paths put in place, the folder's bin/
 *  first on the path; commands that would touch the machine are only recorded.
 *  Returns the text to hand to a real shell, or nothing when it is not to run. */
std::optional<std::string> shell_command(const std::string &command);

/** Starts a thread of libvap's own. False, with a line on standard error, when the
 *  machine has none left or a fault of "thread" is due. */
bool start_thread(std::thread &thread, const char *name, std::function<void()> body);

/** Work under way on a thread of libvap, such as a message that is not yet
 *  delivered: `settle` and `advance` wait until it is over. May be ended on
 *  another thread than it began on. */
void begin_work();
void end_work();

/** Runs when the current device is let go of, after the agent's threads have
 *  come to rest and while the device can still be asked; newest first. */
void on_close(std::function<void()> act);

/** Restarts the device a moment after the call, on the committed configuration
 *  or (`restore`) on factory defaults: the process ends with `exit_restart`, where
 *  `restarts_process` is on. False: it cannot. */
bool restart_device(bool restore);

/** Is the process a fork server's child (see virtual/fork_server.h), which gets this
 *  signal, blocked in all of its threads, when its hardware.json was replaced? A machine
 *  has few watches for so many processes, and one is enough for the server. */
bool is_told_of_changes();
int change_signal();

/* ---- what shows the hardware ------------------------------------------- */

/** Hardware description of a new device. */
Json default_hardware(const NewDevice &options);

/** Starts what runs beside the agent on the current device, the discovery service
 *  and the watch over the hardware description, until the device is let go of.
 *  Call it when a device was opened, at uptime 0, with no lock held. Throws
 *  std::runtime_error when it cannot. */
void start_hardware();

/** Takes a changed hardware description in at this moment of virtual time rather
 *  than at the next platform call. Call it with no lock held. */
void hardware_changed();

/** BSSID behind an identifier of `apmib_get`; false for an unknown one. */
bool bssid_of(int id, uint8_t out[6]);

/** Text of "/proc/rtl865x/asicCounter" for a selected switch port; "" for a port
 *  that the switch does not have. */
std::string asic_counter_text(int port);

/** Exit status with which every download fails; 0: none does. */
int wget_status();

/** Replaces the device's flash by the image at a device path, whole or not at
 *  all; false when it is missing or too large for the flash. */
bool write_flash(const std::string &device_path);

}  // namespace vap

#endif
