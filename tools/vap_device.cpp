#include <cerrno>
#include <cstdio>
#include <memory>

#include "tools/cli.h"
#include "tools/vap_commands.h"
#include "virtual/folder/store.h"
#include "virtual/vap.h"

namespace {

struct DeviceArguments {
    std::filesystem::path folder;
    std::string key, value;
    vap::NewDevice device;
    bool factory = false;
};

std::filesystem::path file_of(const DeviceArguments &given) {
    return given.folder / (given.factory ? "factory" : "config");
}

/** The keys that stand there, for the shell. */
std::vector<std::string> keys_of(const DeviceArguments &given) {
    std::vector<std::string> keys;
    for (const auto &[key, value] :
         vap::Store(file_of(given)).committed().value_or(vap::Values())) {
        keys.push_back(key);
    }
    return keys;
}

std::string check_serial(const std::string &serial) {
    return serial.empty() ? "a serial number is not empty" : "";
}

void create(const DeviceArguments &given) {
    vap::create_device(given.folder, given.device);
    const std::string serial = vap::Store(given.folder / "factory").get("ZQ_ATE_SN").value_or("");
    printf("%s is a %s with serial number %s\n", given.folder.c_str(), given.device.model.c_str(),
           serial.c_str());
}

void get(const DeviceArguments &given) {
    vap::Store store(file_of(given));
    if (given.key.empty()) {
        fputs(vap::print_values(store.committed().value_or(vap::Values())).c_str(), stdout);
        return;
    }
    const std::optional<std::string> value = store.get(given.key);
    if (!value) {
        throw tools::Failure(given.key + " is not set");
    }
    printf("%s\n", value->c_str());
}

void set(const DeviceArguments &given) {
    if (!vap::valid_key(given.key)) {
        throw tools::Failure("no key of the store: " + given.key);
    }
    if (!vap::valid_value(given.value)) {
        throw tools::Failure("a value is a text of at most 1023 bytes");
    }
    vap::Store store(file_of(given));
    errno = 0;
    if (!store.set_now(given.key, given.value)) {
        throw tools::Failure(tools::cannot("change", file_of(given)));
    }
}

}  // namespace

void add_device_commands(CLI::App &app) {
    const auto given = std::make_shared<DeviceArguments>();

    CLI::App *command = app.add_subcommand("new", "Makes a device folder");
    command->footer("Example: vap new office --serial K2A0000001 --model ZX-A6");
    command->add_option("DIR", given->folder, "Folder to make")->required();
    command->add_option("--serial", given->device.serial, "Serial number; any without one")
        ->check(check_serial, "");
    command->add_option("--model", given->device.model, "Model name")->capture_default_str();
    command->callback([given] { create(*given); });

    command = app.add_subcommand("get", "Prints a configuration value, or all of them");
    command->footer("Example: vap get office wl2g.ssid0.ssid");
    command->add_option("DIR", given->folder, "Device folder")->required();
    tools::offer(command->add_option("KEY", given->key, "Configuration key"),
                 [given] { return keys_of(*given); });
    command->add_flag("--factory", given->factory, "Of the factory values");
    command->callback([given] { get(*given); });

    command = app.add_subcommand("set", "Sets and commits a value, also while the agent runs");
    command->footer("Example: vap set office nx.manage.status 1");
    command->add_option("DIR", given->folder, "Device folder")->required();
    tools::offer(command->add_option("KEY", given->key, "Configuration key")->required(),
                 [given] { return keys_of(*given); });
    command->add_option("VALUE", given->value, "Its new text")->required();
    command->add_flag("--factory", given->factory, "Of the factory values");
    command->callback([given] { set(*given); });
}
