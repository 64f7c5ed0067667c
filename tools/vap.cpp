/**
 * vap: virtual access points by hand.
 */
#include "tools/cli.h"
#include "tools/vap_commands.h"

int main(int argc, char **argv) {
    CLI::App app("Virtual access points: make one, run the agent on it, look at it, change it",
                 "vap");
    app.footer(
        "Examples:\n"
        "  vap new office --serial K2A0000001\n"
        "  vap run office --broker mqtt://127.0.0.1:1883 --trace\n"
        "  vap set office nx.manage.status 1\n"
        "  vap journal office --follow\n"
        "  vap COMMAND --help");
    add_device_commands(app);
    add_run_command(app);
    add_journal_command(app);
    add_send_command(app);
    add_station_command(app);
    add_image_command(app);
    add_fleet_command(app);
    return tools::run(app, argc, argv);
}
