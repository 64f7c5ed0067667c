#include <unistd.h>

#include <cstdio>
#include <memory>

#include "nxapi/broker_address.h"
#include "tools/cli.h"
#include "tools/fleet/folders.h"
#include "tools/fleet/run.h"
#include "tools/vap_agent.h"
#include "tools/vap_cloud.h"
#include "tools/vap_commands.h"
#include "virtual/folder/files.h"

namespace {

using std::filesystem::path;

/** How `vap fleet` ends when a goal is missed. */
constexpr int goal_missed = 2;

/** The scenario of a folder that `vap fleet new` made. */
constexpr const char *own_scenario = "fleet.json";

struct FleetArguments {
    path scenario, folder, agent, report;
    std::vector<path> reports;
    std::string broker, lasts, slice = "1/1";
    std::string serial = "FLEET{5}", model = "ZX-A5";
    int devices = 0;
    int64_t seed = -1;
    double speed = 0;
    bool trace = false;
};

std::string check_duration(const std::string &text) {
    return fleet::seconds_of(text) ? "" : "a duration is a number with ms, s, m or h: 90s";
}

std::string check_slice(const std::string &text) {
    unsigned part = 0, of = 0;
    char rest = 0;
    const bool good =
        sscanf(text.c_str(), "%5u/%5u%c", &part, &of, &rest) == 2 && part >= 1 && part <= of;
    return good ? "" : "a slice is PART/OF, such as 2/4";
}

fleet::Slice slice_of(const std::string &text) {
    fleet::Slice slice;
    sscanf(text.c_str(), "%5u/%5u", &slice.part, &slice.of);
    return slice;
}

std::string check_brokers(const std::string &list) {
    std::vector<nxapi::BrokerAddress> brokers;
    if (const std::string why = check_broker(list); !why.empty()) {
        return why;
    }
    nxapi::broker_list_fault(list, brokers);
    for (const nxapi::BrokerAddress &broker : brokers) {
        if (broker.tls) {
            return "the devices of a fleet have no certificates: mqtt:// only";
        }
    }
    return "";
}

void make(const FleetArguments &given) {
    if (const std::string why = fleet::serial_fault(given.serial, given.devices); !why.empty()) {
        throw tools::Misuse("--serial " + given.serial + " " + why);
    }
    const fleet::Json document{{"groups",
                                {{{"name", "devices"},
                                  {"devices", given.devices},
                                  {"serial", given.serial},
                                  {"model", given.model}}}},
                               {"steps", {{{"at", 0}, {"do", "start"}}}}};
    const path file = given.folder / own_scenario;
    if (std::filesystem::exists(file)) {
        throw tools::Failure(file.string() + " is there already");
    }
    const fleet::Scenario scenario = fleet::parse_scenario(own_scenario, document.dump());
    const fleet::Folders folders(given.folder);
    for (const fleet::Planned &device : fleet::make_plan(scenario).devices) {
        folders.make(device, scenario.groups[0]);
    }
    errno = 0;
    if (!vap::replace_file(file, document.dump(2) + "\n")) {
        throw tools::Failure(tools::cannot("write", file));
    }
    printf("%d devices in %s, %s to %s\n", given.devices, given.folder.c_str(),
           fleet::serial_of(given.serial, 1).c_str(),
           fleet::serial_of(given.serial, given.devices).c_str());
}

fleet::Scenario scenario_of(const FleetArguments &given) {
    const path own = given.folder / own_scenario;
    if (!given.scenario.empty()) {
        return fleet::read_scenario(given.scenario);
    }
    if (!given.folder.empty() && std::filesystem::exists(own)) {
        return fleet::read_scenario(own);
    }
    if (given.devices == 0) {
        throw tools::Misuse("name a scenario, or say --devices N, or --dir of a fleet");
    }
    return fleet::plain_scenario(given.devices, given.serial, given.model);
}

fleet::Scenario changed(fleet::Scenario scenario, const FleetArguments &given) {
    if (given.devices > 0) {
        fleet::resize(scenario, given.devices);
    }
    for (const fleet::Group &group : scenario.groups) {
        if (const auto why = fleet::serial_fault(group.serial, group.devices); !why.empty()) {
            throw tools::Misuse("group " + group.name + ": " + group.serial + " " + why);
        }
    }
    scenario.seed = given.seed < 0 ? scenario.seed : static_cast<uint64_t>(given.seed);
    scenario.speed = given.speed > 0 ? given.speed : scenario.speed;
    if (!given.lasts.empty()) {
        scenario.lasts = *fleet::seconds_of(given.lasts);
    }
    const bool acts_on_brokers = std::ranges::any_of(
        scenario.steps, [](const fleet::Step &step) { return step.verb == fleet::Verb::broker; });
    if (!given.broker.empty() && acts_on_brokers) {
        throw tools::Misuse("this scenario stops brokers, so it runs without --broker on its own");
    }
    return scenario;
}

void end_with(const fleet::Report &report) {
    fputs(fleet::table_of(report).c_str(), stdout);
    fflush(stdout);
    if (report.figures.interrupted) {
        throw tools::Failure("the scenario was interrupted");
    }
    if (!report.good()) {
        throw tools::Failure("a goal was missed", goal_missed);
    }
}

void run(const FleetArguments &given) {
    fleet::RunOptions options;
    const fleet::Scenario scenario = changed(scenario_of(given), given);
    options.agent = find_agent(given.agent);
    options.folder = given.folder;
    options.slice = slice_of(given.slice);
    options.trace = given.trace;
    options.endless = given.scenario.empty() && given.lasts.empty();
    if (!given.broker.empty()) {
        options.brokers = CLI::detail::split(given.broker, ',');
    }
    const fleet::Report report = fleet::run(scenario, options);
    if (!given.report.empty()) {
        fleet::write_report(given.report, report);
    }
    end_with(report);
}

void merge(const FleetArguments &given) {
    const fleet::Report report = fleet::merge_reports(given.reports);
    if (!given.report.empty()) {
        fleet::write_report(given.report, report);
    }
    end_with(report);
}

void add_new(CLI::App &parent, const std::shared_ptr<FleetArguments> &given) {
    CLI::App *command = parent.add_subcommand("new", "Makes the folders of a fleet");
    command->footer(
        "Example: vap fleet new cafes --devices 200 --serial 'CAFE{5}'\n"
        "\n"
        "DIR/fleet.json becomes a scenario that starts them.");
    command->add_option("DIR", given->folder, "Folder to make them in")->required();
    command->add_option("--devices", given->devices, "How many")
        ->required()
        ->check(CLI::Range(1, 65'535));
    command->add_option("--serial", given->serial, "Serial number, {5} for five digits")
        ->capture_default_str();
    command->add_option("--model", given->model, "Model name")->capture_default_str();
    command->callback([given] { make(*given); });
}

void add_run(CLI::App &parent, const std::shared_ptr<FleetArguments> &given) {
    CLI::App *command = parent.add_subcommand("run", "Runs a fleet, by a scenario or just so");
    command->footer(
        "Examples:\n"
        "  vap fleet run --devices 500\n"
        "  vap fleet run --dir cafes --broker mqtt://127.0.0.1:1883 --for 10m\n"
        "  vap fleet run config/scenarios/office-day.json --devices 40 --report day.json\n"
        "\n"
        "Status 0: every goal met; 1: an error; 2: a goal was missed.");
    command->add_option("SCENARIO", given->scenario, "Scenario; without one the devices start")
        ->type_name("FILE");
    command->add_option("--dir", given->folder, "Folder of the devices; else one for this run")
        ->type_name("DIR");
    command
        ->add_option("--broker", given->broker, "mqtt://HOST[:PORT][,...]; else brokers of its own")
        ->check(check_brokers, "");
    command->add_option("--devices", given->devices, "How many; a scenario's groups share them")
        ->check(CLI::Range(1, 65'535));
    command->add_option("--seed", given->seed, "What happens by chance follows from it")
        ->check(tools::number(0, 9e15));
    command->add_option("--speed", given->speed, "How fast the devices' time passes")
        ->check(tools::number(0.01, 1000));
    command->add_option("--for", given->lasts, "How long, such as 10m")->check(check_duration, "");
    command->add_option("--slice", given->slice, "PART/OF of the devices, such as 2/4")
        ->check(check_slice, "");
    command->add_option("--report", given->report, "Where the report goes as JSON")
        ->type_name("FILE");
    command->add_flag("--trace", given->trace, "Let the agents write trace lines to agent.log");
    command->add_option("--agent", given->agent, "The agent's program; else norvex beside vap")
        ->type_name("FILE");
    command->callback([given] { run(*given); });
}

void add_report(CLI::App &parent, const std::shared_ptr<FleetArguments> &given) {
    CLI::App *command = parent.add_subcommand("report", "Shows a report, or slices' as one");
    command->footer("Example: vap fleet report one.json two.json --report all.json");
    command->add_option("REPORT", given->reports, "Reports of the slices of a run")
        ->required()
        ->type_name("FILE");
    command->add_option("--report", given->report, "Where the whole goes as JSON")
        ->type_name("FILE");
    command->callback([given] { merge(*given); });
}

}  // namespace

void add_fleet_command(CLI::App &app) {
    CLI::App *command =
        app.add_subcommand("fleet", "Many devices at once, by a script and with a verdict");
    command->require_subcommand(1);
    const auto given = std::make_shared<FleetArguments>();
    add_new(*command, given);
    add_run(*command, given);
    add_report(*command, given);
}
