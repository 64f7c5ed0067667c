/*
 * nxctl config: a device's whole configuration into a file, and from a file.
 */
#include <cstdio>
#include <memory>

#include "tools/nxctl_commands.h"
#include "tools/nxctl_files.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_orders.h"
#include "tools/nxctl_output.h"

namespace nxctl {
namespace {

using tools::Failure;

/** What stands in front of a configuration that travels; the device asks for it. */
constexpr std::string_view marker = "#The word of \"Default\" must not be removed\nDefault\n";

struct ConfigWish {
    std::string serial, file;
    double timeout = 0;
};

Form form_of(const char *name, std::string request, const ConfigWish &wish) {
    const Command &command = *find_command(name);
    Form form;
    form.target = command.target();
    form.request = std::move(request);
    form.until = command.completion.uploads;
    form.until_timeout = wish.timeout > 0 ? wish.timeout : command.completion.seconds;
    form.timeout = 30;  // a device that imports serves nothing else for up to ten seconds
    return form;
}

/** The upload that completes the order; throws when there is none. */
Received run(const Options &options, Form form, const std::string &serial) {
    check_serial(serial);
    Brokers brokers(access_of(options));
    Orders orders(brokers, std::move(form));
    Received upload;
    orders.on_end = [&](const Order &order) {
        if (!order.failure.empty()) {
            throw Failure(order.failure, order.exit);
        }
        upload = *order.upload;
    };
    orders.run({serial});
    return upload;
}

void save(const Options &options, const ConfigWish &wish) {
    const std::string name = wish.serial.substr(0, file_header);
    Form form = form_of("dev_config_copy_upload", json_line({{"copy_sn", wish.serial}}), wish);
    form.is_mine = [&](const Received &upload) {
        return upload.payload.starts_with(name) &&
               upload.payload.find_first_not_of('\0', name.size()) >= file_header;
    };
    const Received upload = run(options, form, wish.serial);
    const std::string file = upload.payload.substr(file_header);
    if (file.empty()) {
        throw Failure("device " + wish.serial + " has no configuration to save", unwilling);
    }
    if (wish.file == "-") {
        print(file);
        return;
    }
    replace_file(wish.file, file);
    std::printf("%s: %zu bytes of %s\n", wish.file.c_str(), file.size(), wish.serial.c_str());
}

/** A saved configuration, or the upload of one with the name in front of it. */
std::string restorable(const std::string &path) {
    std::string text = whole_file(path);
    if (text.size() > file_header && text.compare(file_header, marker.size(), marker) == 0) {
        text.erase(0, file_header);
    }
    if (!text.starts_with(marker)) {
        throw Failure(path + " is no saved configuration: its first line is not " +
                      std::string(marker.substr(0, marker.find('\n'))));
    }
    if (text.find('\0') != text.npos) {
        throw Failure(path + " is no saved configuration: it holds a NUL byte");
    }
    return text;
}

void restore(const Options &options, const ConfigWish &wish) {
    run(options, form_of("config_sync", restorable(wish.file), wish), wish.serial);
    std::printf("%s has restarted with %s\n", wish.serial.c_str(), wish.file.c_str());
}

CLI::App *add(CLI::App &app, const Options &options, const std::shared_ptr<ConfigWish> &wish,
              const char *name, const char *does, const char *file) {
    CLI::App *command = app.add_subcommand(name, does);
    tools::offer(command->add_option("SERIAL", wish->serial, "The device")->required(),
                 known_serials(options));
    command->add_option("FILE", wish->file, file)->required();
    command->add_option("--timeout", wish->timeout, "How long to wait; else what it usually needs")
        ->type_name("SECONDS")
        ->check(tools::number(0.001, 86400));
    return command;
}

}  // namespace

void add_config_command(CLI::App &app, const Options &options) {
    CLI::App *group = app.add_subcommand("config", "Saves and restores a whole configuration");
    group->require_subcommand(1);
    group->footer(
        "Examples:\n"
        "  nxctl config save SN0001 sn0001.cfg\n"
        "  nxctl config restore SN0001 sn0001.cfg\n"
        "\n"
        "The file holds pass phrases; it is made readable for its owner alone. A virtual\n"
        "device keeps settings that a restored file does not name.");
    const auto wish = std::make_shared<ConfigWish>();
    add(*group, options, wish, "save", "Writes the configuration of a device into a file",
        "File to write; - is standard output")
        ->callback([&options, wish] { save(options, *wish); });
    add(*group, options, wish, "restore", "Gives a device the configuration of a file; it restarts",
        "Saved configuration")
        ->callback([&options, wish] { restore(options, *wish); });
}

}  // namespace nxctl
