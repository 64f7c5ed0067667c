#include "tools/cli.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <sstream>

#include "tools/cli_tables.h"
#include "tools/text.h"

namespace tools {
namespace {

/** Help that fits a terminal. */
class Formatter : public CLI::Formatter {
  public:
    std::string make_description(const CLI::App *app) const override {
        return wrapped(app->get_description(), usual_width) + "\n";
    }
    std::string make_subcommand(const CLI::App *command) const override {
        std::ostringstream out;
        CLI::detail::format_help(out, command->get_name(), beside(command->get_description()),
                                 get_column_width());
        return out.str();
    }
    std::string make_option_desc(const CLI::Option *option) const override {
        return beside(option->get_description());
    }

  private:
    std::string beside(const std::string &text) const {
        return wrapped(text, usual_width - get_column_width());
    }
};

void format_all(CLI::App &app, const std::shared_ptr<CLI::FormatterBase> &formatter) {
    app.formatter(formatter);
    for (CLI::App *command : visible_commands(app)) {
        format_all(*command, formatter);
    }
}

/** The innermost subcommand that the command line named. */
CLI::App *reached(CLI::App &app, std::string &name) {
    CLI::App *at = &app;
    name = at->get_name();
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        name += " " + at->get_name();
    }
    return at;
}

/** What is wrong with a command line, where possible with the word that is. */
std::string usage_text(CLI::App &app, const CLI::App &at, const std::string &name,
                       const CLI::ParseError &error) {
    const std::vector<std::string> left = app.remaining(true);
    if (left.empty()) {
        return error.what();
    }
    if (left.front().starts_with('-') && left.front() != "-") {
        return name + " has no option " + left.front();
    }
    const bool takes_command = at.get_require_subcommand_min() > 0;
    return takes_command ? "there is no command \"" + name + " " + left.front() + "\""
                         : "\"" + left.front() + "\" is one word too many";
}

int fail(const std::string &tool, const std::string &sentence, int exit) {
    fflush(stdout);
    fprintf(stderr, "%s: %s\n", tool.c_str(), shown(sentence).c_str());
    return exit;
}

int misused(CLI::App &app, const std::string &sentence) {
    std::string name;
    reached(app, name);
    return fail(app.get_name(), sentence + " (see " + name + " --help)", usage);
}

struct Shell {
    std::string name, line;
};

void add_own_commands(CLI::App &app, Shell &shell) {
    CLI::App *completion = app.add_subcommand("completion", "Prints the completion for a shell");
    completion->footer("Example: source <(" + app.get_name() + " completion bash)");
    completion->add_option("SHELL", shell.name, "bash or zsh")
        ->check(CLI::IsMember({"bash", "zsh"}));
    CLI::Option *line = completion->add_option("--line", shell.line)->group("");
    completion->callback([&app, &shell, line] {
        if (line->count() == 0 && shell.name.empty()) {
            throw Misuse("SHELL is required");
        }
        const std::string text = line->count() > 0 ? completions(app, shell.line)
                                                   : completion_script(app.get_name(), shell.name);
        fputs(text.c_str(), stdout);
    });
    CLI::App *man = app.add_subcommand("man", "Prints the manual page");
    man->footer("Example: " + app.get_name() + " man | man -l -");
    man->callback([&app] { fputs(manual(app, NORVEX_VERSION).c_str(), stdout); });
}

int parse(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);  // --help, --version
        }
        std::string name;
        const CLI::App *at = reached(app, name);
        return misused(app, usage_text(app, *at, name, error));
    } catch (const Misuse &misuse) {
        return misused(app, misuse.what());
    } catch (const Failure &failure) {
        return fail(app.get_name(), failure.what(), failure.exit);
    } catch (const std::exception &error) {
        return fail(app.get_name(), error.what(), failed);
    }
    return 0;
}

}  // namespace

std::string cannot(const std::string &act, const std::string &what) {
    const std::string why = errno == 0 ? "" : std::string(": ") + strerror(errno);
    return "cannot " + act + " " + what + why;
}

CLI::Validator number(double least, double most) {
    const auto check = [=](std::string &text) -> std::string {
        double value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
            return "";
        }
        std::ostringstream sentence;
        sentence << "\"" << text << "\" is no number between " << least << " and " << most;
        return sentence.str();
    };
    return {check, ""};
}

int run(CLI::App &app, int argc, char **argv, Commands commands) {
    Shell shell;
    app.set_version_flag("--version", app.get_name() + " " NORVEX_VERSION, "Print the version");
    add_own_commands(app, shell);
    format_all(app, std::make_shared<Formatter>());
    app.require_subcommand(commands == Commands::required ? 1 : 0, 1);
    const int status = parse(app, argc, argv);
    errno = 0;
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        const int written = fail(app.get_name(), cannot("write", "standard output"), failed);
        return status == 0 ? written : status;
    }
    return status;
}

}  // namespace tools
