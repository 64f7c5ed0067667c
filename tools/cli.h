/**
 * What the command lines of the tools share: how they end and what they say then,
 * the completion of their words in a shell, their manual pages. All of it comes
 * from the option tables that the tools parse.
 */
#ifndef TOOLS_CLI_H
#define TOOLS_CLI_H

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tools {

/** How a tool ends: a command line that is wrong, and every other failure. */
enum Exit { failed = 1, usage = 64 };

/** A sentence for the user, and how the tool ends behind it. */
struct Failure : std::runtime_error {
    explicit Failure(const std::string &sentence, int how = failed)
        : std::runtime_error(sentence), exit(how) {}
    int exit;
};

/** A command line that the option tables cannot tell to be wrong: `run` adds where
 *  the help is. */
struct Misuse : Failure {
    explicit Misuse(const std::string &sentence) : Failure(sentence, usage) {}
};

/** "cannot write FILE: No space left on device", from errno; without the reason when
 *  errno has none. Set errno to 0 before what may fail without setting it. */
std::string cannot(const std::string &act, const std::string &what);

/** Refuses what is no finite number between two bounds. */
CLI::Validator number(double least, double most);

/** Words that a value may be, for the shell to offer; options and arguments in front
 *  of it on the command line, and those with an environment variable, stand in their
 *  variables already. May throw: then nothing is offered. Words with control
 *  characters are left out. */
using Words = std::function<std::vector<std::string>()>;

/** Offers words for an option's value or an argument. Without it a value that help
 *  shows as FILE or as DIR is completed to one, and one of a set to its members. */
CLI::Option *offer(CLI::Option *option, Words words);

/** Does a command line without a command say anything? */
enum class Commands { required, optional };

/** Parses the command line and runs the callbacks of what it names; gives the app
 *  --version, `completion bash|zsh` and `man`. Anything that is thrown becomes one
 *  line on standard error. Returns the exit status: 0, that of a Failure, `usage` or
 *  `failed`. Call it from `main`, when all options are there. */
int run(CLI::App &app, int argc, char **argv, Commands commands = Commands::required);

}  // namespace tools

#endif
