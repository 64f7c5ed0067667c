/*
 * nxctl: the cloud's side of virtual and real access points, by hand.
 */
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "tools/nxctl_commands.h"
#include "tools/nxctl_session.h"
#include "virtual/nxapi/broker_address.h"
#include "virtual/nxapi/topics.h"

namespace {

using nxctl::Clock;
using nxctl::Failure;
using nxctl::Received;
using nxctl::Session;
namespace topics = nxapi::topics;
using Json = nlohmann::ordered_json;

/** Retained texts of a whole fleet come in one go; a pause this long ends them. */
constexpr std::chrono::milliseconds quiet{300};

constexpr size_t config_header = 32; /**< bytes before an uploaded file: its name */

/** A serial number that is no topic of its own would reach other devices. */
void check_serial(const std::string &serial) {
    if (serial.empty() || serial.find_first_of("+#/") != serial.npos) {
        throw Failure("\"" + serial + "\" is no serial number");
    }
}

/** "<family>/<slot>" of a handler's name, or of itself. */
std::string resolve(const std::string &command) {
    if (const auto named = std::ranges::find(nxctl::commands, command, &nxctl::NamedCommand::name);
        named != nxctl::commands.end()) {
        return topics::slot(named->family, named->slot);
    }
    if (command == topics::serial) {
        return command;
    }
    const size_t slash = command.find('/');
    if (slash == command.npos) {
        throw Failure("there is no command \"" + command + "\"; nxctl commands lists them");
    }
    const size_t slots = nxctl::slots_of(command.substr(0, slash));
    long slot = 0;
    if (slots == 0 ||
        !nxapi::parse_number(command.substr(slash + 1), 0, static_cast<long>(slots) - 1, slot)) {
        throw Failure("\"" + command + "\" is no slot of a family; nxctl commands lists them");
    }
    return command;
}

/** The levels of a device's topic: its serial number, and what lies below. */
bool split(const std::string &topic, std::string &serial, std::string &below) {
    const size_t slash = topic.find('/', topics::root.size());
    if (!topic.starts_with(topics::root) || slash == topic.npos) {
        return false;
    }
    serial = topic.substr(topics::root.size(), slash - topics::root.size());
    below = topic.substr(slash + 1);
    return true;
}

bool is_online(const Received &status) {
    return status.payload == topics::online;
}

void list_commands() {
    for (const nxctl::FamilySize &family : nxctl::families) {
        std::printf("%s (%zu slots)\n", family.name.data(), family.slots);
        for (const nxctl::NamedCommand &row : nxctl::commands) {
            if (row.family == family.name) {
                std::printf("  %-9s %s\n", topics::slot(row.family, row.slot).c_str(),
                            row.name.data());
            }
        }
    }
}

/** What is known of a device. */
struct Device {
    std::string state = "unknown";
    std::string model, firmware, mac;
};

void take_identity(const std::string &text, Device &device) {
    const Json identity = Json::parse(text, nullptr, false);
    if (identity.is_object()) {
        device.model = identity.value("model", "");
        device.firmware = identity.value("firmware_version", "");
        device.mac = identity.value("mac", "");
    }
}

void list_devices(const nxctl::Options &options) {
    Session session(options);
    std::map<std::string, Device> devices;
    Clock::time_point last;
    session.on_message = [&](const Received &message) {
        last = Clock::now();
        std::string serial;
        std::string below;
        if (!split(message.topic, serial, below)) {
            return;
        }
        if (below == topics::status) {
            devices[serial].state = is_online(message) ? "online" : "offline";
        } else if (below == topics::identity) {
            take_identity(message.payload, devices[serial]);
        }
    };
    session.subscribe(
        {topics::of_device("+", topics::status), topics::of_device("+", topics::identity)});
    Clock::time_point end;
    do {
        end = std::max(last, Clock::now()) + quiet;
        session.work([] { return false; }, end);
    } while (last + quiet > end);
    std::printf("%-32s %-8s %-12s %-20s %s\n", "SERIAL", "STATE", "MODEL", "FIRMWARE", "MAC");
    for (const auto &[serial, device] : devices) {
        std::printf("%-32s %-8s %-12s %-20s %s\n", serial.c_str(), device.state.c_str(),
                    device.model.c_str(), device.firmware.c_str(), device.mac.c_str());
    }
}

std::string correlation() {
    std::random_device chance;
    std::string bytes(16, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(chance());
    }
    return bytes;
}

struct Call {
    std::string serial;
    std::string command;
    std::string request;
    double timeout = 10;
};

/** The answer of the agent; throws Failure when there is none. */
Received call_device(const nxctl::Options &options, const Call &call) {
    check_serial(call.serial);
    const std::string target = resolve(call.command);
    nxctl::Request request;
    request.topic = topics::of_device(call.serial, std::string(topics::commands) + target);
    request.response_topic =
        topics::of_device(call.serial, std::string(topics::responses) + target);
    request.payload = call.request;
    request.correlation = correlation();
    request.expiry = std::chrono::seconds(static_cast<long>(call.timeout) + 1);

    Session session(options);
    std::optional<Received> answer;
    bool away = false;
    int reason = 0;
    session.on_message = [&](const Received &message) {
        if (message.topic == request.response_topic && message.correlation == request.correlation) {
            answer = message;
        } else if (message.retained && !is_online(message)) {
            away = true;
        }
    };
    session.on_acknowledged = [&](int, int code) { reason = code; };
    session.subscribe({topics::of_device(call.serial, topics::status), request.response_topic});
    if (!away) {
        session.publish(request);
        const auto patience = std::chrono::duration<double>(call.timeout);
        session.work([&] { return answer || away || reason != 0; },
                     Clock::now() + std::chrono::duration_cast<Clock::duration>(patience));
    }
    if (answer) {
        return *answer;
    }
    if (reason >= 0x80) {
        throw Failure(std::string("the broker refuses the command (") +
                      mosquitto_reason_string(reason) + ")");
    }
    throw Failure(away || reason != 0 ? "device " + call.serial + " is not connected"
                                      : "device " + call.serial + " did not answer in time",
                  nxctl::unanswered);
}

void run_call(const nxctl::Options &options, const Call &call) {
    const Received answer = call_device(options, call);
    std::fwrite(answer.payload.data(), 1, answer.payload.size(), stdout);
    if (!answer.payload.empty() && isatty(STDOUT_FILENO) != 0) {
        std::putchar('\n');
    }
    if (answer.result == -1) {
        throw Failure("device " + call.serial + " refuses " + call.command, nxctl::refused);
    }
}

/** The text of an upload for people: indented lines, or what the bytes are. */
std::string readable(const std::string &below, const std::string &payload) {
    if (below == "up/config" || below == "up/config_copy") {
        const std::string name = payload.substr(0, config_header).c_str();
        const size_t bytes = payload.size() - std::min(payload.size(), config_header);
        return "  \"" + name + "\", " + std::to_string(bytes) + " bytes\n";
    }
    std::string text = "  ";
    for (const char c : payload) {
        text += c;
        if (c == '\n') {
            text += "  ";
        }
    }
    return text + "\n";
}

void print_upload(const Received &message) {
    std::string serial;
    std::string below;
    if (!split(message.topic, serial, below)) {
        return;
    }
    const time_t now = time(nullptr);
    char clock[16];
    std::strftime(clock, sizeof(clock), "%H:%M:%S", localtime(&now));
    if (below == topics::status) {
        below = is_online(message) ? "online" : "offline";
    }
    std::printf("%s %s %s%s\n", clock, serial.c_str(), below.c_str(),
                message.retained ? " (earlier)" : "");
    if (below.starts_with(topics::uploads)) {
        std::fputs(readable(below, message.payload).c_str(), stdout);
    }
    std::fflush(stdout);
}

void watch(const nxctl::Options &options, const std::string &serial) {
    if (!serial.empty()) {
        check_serial(serial);
    }
    const std::string whom = serial.empty() ? "+" : serial;
    Session session(options);
    session.on_message = print_upload;
    session.subscribe(
        {topics::of_device(whom, topics::status), topics::of_device(whom, topics::uploads) + "#"});
    session.work([] { return false; }, Clock::time_point::max());
}

std::string whole_input() {
    return {std::istreambuf_iterator<char>(std::cin), {}};
}

constexpr const char *examples =
    "Examples:\n"
    "  nxctl devices\n"
    "  nxctl call SN0001 add_router_to_prj '{\"cloud_id\":\"c1\",\"project_id\":7}'\n"
    "  nxctl call SN0001 dev/0\n"
    "  nxctl call SN0001 wlan_config_set - <request.json\n"
    "  nxctl call SN0001 system/serial SN0002\n"
    "  nxctl watch SN0001\n"
    "  nxctl --broker mqtts://cloud.example --ca ca.crt --cert console.crt --key console.key "
    "devices\n"
    "\n"
    "The password of --user stands in the environment, as NXCTL_PASSWORD.\n"
    "\n"
    "Exit status of call: 0 answered, 2 the agent's callback refused, 3 nobody answered in time\n"
    "or the device is not connected, 1 and above 100 any other error.";

}  // namespace

int main(int argc, char **argv) {
    CLI::App app("Drives access points through their broker.", "nxctl");
    app.footer(examples);
    app.require_subcommand(1);
    app.fallthrough();
    nxctl::Options options;
    options.broker = "mqtt://127.0.0.1:1883";
    app.add_option("--broker", options.broker, "mqtt://HOST[:PORT] or mqtts://HOST[:PORT]")
        ->envname("NXCTL_BROKER")
        ->capture_default_str();
    app.add_option("--user", options.user, "User name at the broker");
    app.add_option("--ca", options.cafile, "Root certificate of a mqtts:// broker (PEM)");
    app.add_option("--cert", options.certfile, "The console's own certificate (PEM)");
    app.add_option("--key", options.keyfile, "Key of that certificate (PEM)");

    app.add_subcommand("devices", "Lists the devices that the broker knows")->callback([&] {
        list_devices(options);
    });
    Call call;
    CLI::App *caller = app.add_subcommand("call", "Sends a command, prints the response");
    caller->add_option("SERIAL", call.serial, "Serial number of the device")->required();
    caller->add_option("COMMAND", call.command, "Handler name or family/slot")->required();
    caller->add_option("JSON", call.request, "Request text; - reads it from standard input");
    caller->add_option("--timeout", call.timeout, "Seconds to wait for the answer")
        ->check(CLI::Range(0.001, 86400.0))
        ->capture_default_str();
    caller->callback([&] {
        if (call.request == "-") {
            call.request = whole_input();
        }
        run_call(options, call);
    });
    std::string watched;
    CLI::App *watcher = app.add_subcommand("watch", "Prints uploads and presence as they come");
    watcher->add_option("SERIAL", watched, "One device only");
    watcher->callback([&] { watch(options, watched); });
    app.add_subcommand("commands", "Lists the commands of the four families")
        ->callback(list_commands);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error);
    } catch (const Failure &failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "nxctl: %s\n", failure.what());
        return failure.exit;
    }
    return nxctl::answered;
}
