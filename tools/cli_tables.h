/**
 * Texts made from the option tables of a tool.
 */
#ifndef TOOLS_CLI_TABLES_H
#define TOOLS_CLI_TABLES_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tools {

/** What help shows: options (without a name: arguments) and subcommands that are not
 *  hidden, in the order in which they were added. */
std::vector<CLI::Option *> visible_options(CLI::App &app, bool arguments);
std::vector<CLI::App *> visible_commands(CLI::App &app);

/** The script that completes a tool's command line in "bash" or "zsh". */
std::string completion_script(const std::string &tool, const std::string &shell);

/** What the shell offers for the last word of a typed line, one a line, with its
 *  description behind a tab; ":file" or ":dir" where it takes a path. */
std::string completions(CLI::App &app, const std::string &line);

/** The manual page of a tool with all of its subcommands, in roff's man macros. */
std::string manual(CLI::App &app, const std::string &version);

}  // namespace tools

#endif
