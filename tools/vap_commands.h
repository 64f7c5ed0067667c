/** Subcommands of `vap` that have a file of their own. */
#ifndef TOOLS_VAP_COMMANDS_H
#define TOOLS_VAP_COMMANDS_H

#include <CLI/CLI.hpp>

/** vap station add|remove|list: the Wi-Fi clients of a device, also while the
 *  agent runs on it. Errors are thrown as std::runtime_error. */
void add_station_command(CLI::App &app);

/** vap image make: firmware images. Errors are thrown as std::exception. */
void add_image_command(CLI::App &app);

#endif
