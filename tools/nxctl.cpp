/*
 * nxctl: the cloud's side of virtual and real access points, by hand.
 */
#include "tools/cli.h"
#include "tools/nxctl_options.h"

int main(int argc, char **argv) {
    CLI::App app("Drives access points through their brokers", "nxctl");
    app.footer(
        "Examples:\n"
        "  nxctl devices\n"
        "  nxctl call SN0001 status_upload\n"
        "  nxctl call 'SN00*' reboot_download --follow\n"
        "  nxctl watch --kind alarm\n"
        "  nxctl commands wlan_config_set\n"
        "  nxctl --broker mqtt://a.example,mqtt://b.example devices\n"
        "  nxctl --broker mqtts://cloud.example --ca ca.crt --cert me.crt --key me.key \\\n"
        "      watch\n"
        "  nxctl COMMAND --help\n"
        "\n"
        "Brokers that serve a fleet side by side stand in one list, with commas. Those\n"
        "that cannot be reached are told and left out.\n"
        "\n"
        "The password of --user stands in the environment, as NXCTL_PASSWORD, or in a\n"
        "file. A profile in ~/.config/nxctl.json ($XDG_CONFIG_HOME/nxctl.json) holds all\n"
        "of it:\n"
        "  {\"default\": \"office\",\n"
        "   \"profiles\": {\"office\": {\"broker\": \"mqtts://cloud.example\", \"user\": \"me\",\n"
        "     \"password_file\": \"office.password\", \"ca\": \"ca.crt\", \"cert\": \"me.crt\",\n"
        "     \"key\": \"me.key\"}}}\n"
        "Files in it are looked for beside it. An option counts before its environment\n"
        "variable, that before the profile; the default profile counts where neither\n"
        "names a broker.");
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
