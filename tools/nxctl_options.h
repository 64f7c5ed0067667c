/**
 * The commands of nxctl, and the options that all of them share: the broker, and who one
 * is there.
 */
#ifndef TOOLS_NXCTL_OPTIONS_H
#define TOOLS_NXCTL_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>

#include "tools/nxctl_session.h"

namespace nxctl {

/** What the command line and the environment say. */
struct Options {
    Access access; /**< all but the password */
    std::string password_file;
    std::string profile;
};

void add_access_options(CLI::App &app, Options &options);

/** The broker to use: what the options say, then what the profile says. The profile is
 *  the one of --profile; without it the default one, unless the options name a broker:
 *  nobody's password is sent to another broker than the one that it belongs to. Throws
 *  Failure when the profile or a file that it names cannot be read. */
Access access_of(const Options &options);

void add_devices_command(CLI::App &app, const Options &options);
void add_call_command(CLI::App &app, const Options &options);
void add_watch_command(CLI::App &app, const Options &options);
void add_config_command(CLI::App &app, const Options &options);
void add_forget_command(CLI::App &app, const Options &options);
void add_commands_command(CLI::App &app);

}  // namespace nxctl

#endif
