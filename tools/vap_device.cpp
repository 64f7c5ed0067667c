#include <cstdio>
#include <memory>
#include <stdexcept>

#include "tools/vap_commands.h"
#include "virtual/ap/store.h"
#include "virtual/ap/vap.h"

namespace {

struct Arguments {
    std::filesystem::path folder;
    std::string key, value;
    vap::NewDevice device;
    bool factory = false;
};

vap::Store open_store(const Arguments &given) {
    return vap::Store(given.folder / (given.factory ? "factory" : "config"));
}

void create(const Arguments &given) {
    vap::create_device(given.folder, given.device);
    const std::string serial = vap::Store(given.folder / "factory").get("ZQ_ATE_SN").value_or("");
    printf("%s is a %s with serial number %s\n", given.folder.c_str(), given.device.model.c_str(),
           serial.c_str());
}

void get(const Arguments &given) {
    vap::Store store = open_store(given);
    if (given.key.empty()) {
        fputs(vap::print_values(store.committed().value_or(vap::Values())).c_str(), stdout);
        return;
    }
    const std::optional<std::string> value = store.get(given.key);
    if (!value) {
        throw std::runtime_error(given.key + " is not set");
    }
    printf("%s\n", value->c_str());
}

void set(const Arguments &given) {
    if (!vap::valid_key(given.key)) {
        throw std::runtime_error("no key of the store: " + given.key);
    }
    if (!vap::valid_value(given.value)) {
        throw std::runtime_error("a value is a text of at most 1023 bytes");
    }
    vap::Store store = open_store(given);
    if (!store.set_now(given.key, given.value)) {
        throw std::runtime_error("cannot write the configuration in " + given.folder.string());
    }
}

}  // namespace

void add_device_commands(CLI::App &app) {
    const auto given = std::make_shared<Arguments>();

    CLI::App *command = app.add_subcommand("new", "Makes a device folder");
    command->footer("Example: vap new office --serial K2A0000001 --model ZX-A6");
    command->add_option("DIR", given->folder, "Folder to make")->required();
    command->add_option("--serial", given->device.serial, "Serial number; any without one");
    command->add_option("--model", given->device.model, "Model name")->capture_default_str();
    command->callback([given] { create(*given); });

    command = app.add_subcommand("get", "Prints a configuration value, or all of them");
    command->footer("Example: vap get office wl2g.ssid0.ssid");
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_option("KEY", given->key, "Configuration key");
    command->add_flag("--factory", given->factory, "Of the factory values");
    command->callback([given] { get(*given); });

    command = app.add_subcommand("set", "Sets and commits a value, also while the agent runs");
    command->footer("Example: vap set office nx.manage.status 1");
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_option("KEY", given->key, "Configuration key")->required();
    command->add_option("VALUE", given->value, "Its new text")->required();
    command->add_flag("--factory", given->factory, "Of the factory values");
    command->callback([given] { set(*given); });
}
