#include <algorithm>
#include <cctype>

#include "tools/cli_tables.h"

namespace tools {
namespace {

constexpr const char *exit_status =
    "0 when all is done, 64 when the command line is wrong, 1 after any other failure. Each\n"
    "failure is told in a sentence on standard error.\n";

/** A text that roff prints as it stands. */
std::string plain(const std::string &text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            const bool starts_line = escaped.empty() || escaped.back() == '\n';
            escaped += starts_line && (c == '.' || c == '\'') ? "\\&" : "";
            escaped += c;
        }
    }
    return escaped;
}

/** A text as one argument of a macro. */
std::string one_word(const std::string &text) {
    return "\"" + CLI::detail::find_and_replace(plain(text), "\"", "\\(dq") + "\"";
}

/** What stands for a value: FILE, FLOAT, {24,5}. */
std::string value_name(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    return type.substr(type.rfind(':') + 1);
}

std::string bold(const std::string &text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string &text) {
    return "\\fI" + plain(text) + "\\fR";
}

std::string synopsis(CLI::App &app, const std::string &name) {
    std::string text = bold(name);
    if (!visible_options(app, false).empty()) {
        text += " [" + italic("OPTIONS") + "]";
    }
    for (const CLI::Option *argument : visible_options(app, true)) {
        const std::string shown = italic(argument->get_name(true)) +
                                  (argument->get_items_expected_max() > 1 ? " ..." : "");
        text += argument->get_required() ? " " + shown : " [" + shown + "]";
    }
    return text + (visible_commands(app).empty() ? "" : " " + italic("COMMAND")) + "\n";
}

std::string describe_option(const CLI::Option &option) {
    std::string text = ".TP\n";
    if (option.nonpositional()) {
        const bool value = option.get_items_expected_max() > 0;
        const std::string names = option.get_name(false, true);
        text += bold(CLI::detail::find_and_replace(names, ",", ", ")) +
                (value ? " " + italic(value_name(option)) : "") + "\n";
    } else {
        text += italic(option.get_name(true)) + "\n";
    }
    text += plain(option.get_description());
    if (!option.get_default_str().empty()) {
        text += "; default: " + plain(option.get_default_str());
    }
    if (!option.get_envname().empty()) {
        text += "; environment variable: " + plain(option.get_envname());
    }
    return text + "\n";
}

std::string describe_options(CLI::App &app) {
    std::string text;
    for (const bool arguments : {true, false}) {
        for (const CLI::Option *option : visible_options(app, arguments)) {
            const bool known = app.get_parent() != nullptr && option == app.get_help_ptr();
            text += known ? "" : describe_option(*option);
        }
    }
    return text;
}

/** The text below the help, which holds examples, line by line; a subcommand
 *  without one has that of the app above. */
std::string footer(const CLI::App &app) {
    const std::string text = app.get_footer();
    const bool own = app.get_parent() == nullptr || app.get_parent()->get_footer() != text;
    return own ? ".PP\n.nf\n" + plain(text) + "\n.fi\n" : "";
}

std::string describe_commands(CLI::App &app, const std::string &name) {
    std::string text;
    for (CLI::App *command : visible_commands(app)) {
        const std::string full = name + " " + command->get_name();
        if (visible_commands(*command).empty()) {
            text += ".SS " + one_word(full) + "\n" + synopsis(*command, full) + ".PP\n" +
                    plain(command->get_description()) + ".\n" + describe_options(*command);
        }
        text += describe_commands(*command, full) + footer(*command);
    }
    return text;
}

}  // namespace

std::string manual(CLI::App &app, const std::string &version) {
    const std::string &name = app.get_name();
    std::string title = name;
    std::ranges::transform(title, title.begin(), [](unsigned char c) { return toupper(c); });
    return ".TH " + one_word(title) + " 1 \"\" " + one_word("norvex " + version) + "\n.SH NAME\n" +
           plain(name) + " \\- " + plain(app.get_description()) + "\n.SH SYNOPSIS\n" +
           synopsis(app, name) + ".SH OPTIONS\n" + describe_options(app) + ".SH COMMANDS\n" +
           describe_commands(app, name) + ".SH EXIT STATUS\n" + exit_status + ".SH NOTES\n" +
           footer(app);
}

}  // namespace tools
