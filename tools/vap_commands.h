/** Subcommands of `vap` that have a file of their own. */
#ifndef TOOLS_VAP_COMMANDS_H
#define TOOLS_VAP_COMMANDS_H

#include <CLI/CLI.hpp>

/** vap new|get|set: device folders and their configuration. Every command throws what
 *  it cannot do as std::exception with a sentence. */
void add_device_commands(CLI::App &app);

/** vap run: the agent on a device. */
void add_run_command(CLI::App &app);

/** vap journal. */
void add_journal_command(CLI::App &app);

/** vap send: a message to the agent's control socket. */
void add_send_command(CLI::App &app);

/** vap station add|remove|list: the Wi-Fi clients of a device, also while the
 *  agent runs on it. */
void add_station_command(CLI::App &app);

/** vap fleet new|run|report: many devices at once. */
void add_fleet_command(CLI::App &app);

/** vap image make: firmware images. */
void add_image_command(CLI::App &app);

#endif
