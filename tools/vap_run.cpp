#include <cstdlib>
#include <memory>

#include "tools/cli.h"
#include "tools/vap_agent.h"
#include "tools/vap_cloud.h"
#include "tools/vap_commands.h"
#include "virtual/folder/hardware.h"
#include "virtual/folder/lock.h"
#include "virtual/folder/store.h"

namespace {

struct RunArguments {
    std::filesystem::path folder, agent;
    CloudArguments cloud;
    double speed = 1;
    bool trace = false;
};

void set_environment(const RunArguments &given) {
    setenv("VAP_DEVICE", std::filesystem::canonical(given.folder).c_str(), 1);
    setenv("VAP_SPEED", std::to_string(given.speed).c_str(), 1);
    given.trace ? setenv("VAP_TRACE", "1", 1) : unsetenv("VAP_TRACE");
}

void run(const RunArguments &given) {
    if (!std::filesystem::exists(given.folder / "hardware.json")) {
        throw tools::Failure(given.folder.string() + " is no device folder (see vap new)");
    }
    vap::Store(given.folder / "config");  // each of them says what is wrong with it
    vap::Store(given.folder / "factory");
    vap::Hardware(given.folder / "hardware.json");
    const std::filesystem::path agent = find_agent(given.agent);
    const vap::RunLock lock(given.folder);
    store_cloud_settings(given.folder, given.cloud);
    set_environment(given);
    keep_agent(agent, lock);
}

}  // namespace

void add_run_command(CLI::App &app) {
    CLI::App *command = app.add_subcommand("run", "Runs the agent on a device until Ctrl-C");
    command->description(
        "Runs the agent on a device until Ctrl-C, again after each restart of the device and "
        "after a crash");
    command->footer(
        "Examples:\n"
        "  vap run office --broker mqtt://127.0.0.1:1883\n"
        "  vap run office --broker mqtt://a.example,mqtt://b.example\n"
        "  vap run office --broker mqtts://a.example --ca ca.crt --cert ap.crt --key ap.key\n"
        "  vap run office --speed 20 --trace\n"
        "\n"
        "Broker and certificates are stored in the folder (root/etc/nxapi.conf).");
    const auto given = std::make_shared<RunArguments>();
    command->add_option("DIR", given->folder, "Device folder")->required();
    command
        ->add_option("--broker", given->cloud.broker,
                     "mqtt://HOST[:PORT] or mqtts://HOST[:PORT], several with commas")
        ->check(check_broker, "");
    const auto pem = [&](const char *name, std::filesystem::path &file, const char *text) {
        return command->add_option(name, file, text)->type_name("FILE");
    };
    pem("--ca", given->cloud.ca, "Root certificate of a mqtts:// broker (PEM)");
    CLI::Option *cert = pem("--cert", given->cloud.cert, "The device's own certificate (PEM)");
    cert->needs(pem("--key", given->cloud.key, "Key of that certificate (PEM)")->needs(cert));
    command->add_option("--speed", given->speed, "How fast the device's time passes")
        ->check(tools::number(0.001, 100'000))
        ->capture_default_str();
    command->add_flag("--trace", given->trace, "Print the agent's trace lines");
    command->add_option("--agent", given->agent, "The agent's program; else norvex beside vap")
        ->type_name("FILE");
    command->callback([given] { run(*given); });
}
