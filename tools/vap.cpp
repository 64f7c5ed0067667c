/**
 * vap: virtual access points by hand.
 */
#include <cstdio>
#include <exception>

#include "tools/vap_commands.h"

namespace {

/** Sentences of the command line reader in the tool's own form. */
std::string failure_text(const CLI::App *app, const CLI::Error &error) {
    std::string command;
    for (const CLI::App *at = app; at != nullptr;
         at = at->get_subcommands().empty() ? nullptr : at->get_subcommands().front()) {
        command += at->get_name() + " ";
    }
    return std::string("vap: ") + error.what() + " (see " + command + "--help)\n";
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app("Virtual access points: make one, run the agent on it, look at it, change it",
                 "vap");
    app.require_subcommand(1);
    app.footer(
        "Examples:\n"
        "  vap new office --serial K2A0000001\n"
        "  vap run office --broker mqtt://127.0.0.1:1883 --trace\n"
        "  vap set office nx.manage.status 1\n"
        "  vap journal office --follow\n"
        "  vap COMMAND --help");
    app.failure_message(failure_text);
    add_device_commands(app);
    add_run_command(app);
    add_journal_command(app);
    add_send_command(app);
    add_station_command(app);
    add_image_command(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception &error) {
        fprintf(stderr, "vap: %s\n", error.what());
        return 1;
    }
    return 0;
}
