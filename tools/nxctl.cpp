/*
 * nxctl: the cloud's side of virtual and real access points, by hand.
 */
#include "tools/cli.h"
#include "tools/nxctl_options.h"

int main(int argc, char **argv) {
    CLI::App app("Drives access points through their broker", "nxctl");
    app.footer(
        "Examples:\n"
        "  nxctl devices\n"
        "  nxctl call SN0001 status_upload\n"
        "  nxctl call 'SN00*' reboot_download --follow\n"
        "  nxctl watch --kind alarm\n"
        "  nxctl commands wlan_config_set\n"
        "  nxctl --broker mqtts://cloud.example --ca ca.crt --cert console.crt --key console.key "
        "devices\n"
        "  nxctl COMMAND --help\n"
        "\n"
        "The password of --user stands in the environment, as NXCTL_PASSWORD, or in a file. A\n"
        "profile in ~/.config/nxctl.json ($XDG_CONFIG_HOME/nxctl.json) holds all of it:\n"
        "  {\"default\": \"office\",\n"
        "   \"profiles\": {\"office\": {\"broker\": \"mqtts://cloud.example\", \"user\": \"me\",\n"
        "     \"password_file\": \"office.password\", \"ca\": \"ca.crt\", \"cert\": \"me.crt\",\n"
        "     \"key\": \"me.key\"}}}\n"
        "Files in it are looked for beside it. An option counts before its environment\n"
        "variable, that before the profile; the default profile counts where neither names a\n"
        "broker.");
    app.fallthrough();
    nxctl::Options options;
    nxctl::add_access_options(app, options);
    nxctl::add_devices_command(app, options);
    nxctl::add_call_command(app, options);
    nxctl::add_watch_command(app, options);
    nxctl::add_config_command(app, options);
    nxctl::add_forget_command(app, options);
    nxctl::add_commands_command(app);
    return tools::run(app, argc, argv);
}
