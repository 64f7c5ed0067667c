#include <algorithm>
#include <array>
#include <memory>

#include "tools/nxctl_fleet.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_output.h"
#include "tools/text.h"

namespace nxctl {
namespace {

struct ListWish {
    Filter filter;
    bool json = false;
};

struct Column {
    const char *title;
    size_t widest; /**< columns of the terminal: a device writes what it likes */
    std::string (*text)(const std::string &serial, const Device &device);
};

constexpr std::array device_columns{
    Column{"SERIAL", 32, [](const std::string &serial, const Device &) { return serial; }},
    Column{"STATE", 7,
           [](const std::string &, const Device &device) { return device.presence.state(); }},
    Column{"MODEL", 16,
           [](const std::string &, const Device &device) { return device.told("model"); }},
    Column{
        "FIRMWARE", 32,
        [](const std::string &, const Device &device) { return device.told("firmware_version"); }},
    Column{"MAC", 17, [](const std::string &, const Device &device) { return device.told("mac"); }},
    Column{"CONNECTED", 17,
           [](const std::string &, const Device &device) {
               const int64_t since = device.presence.since;
               return since == 0 ? std::string() : utc_minutes(since);
           }},
};

using Widths = std::array<size_t, device_columns.size()>;

/** Fills the columns from their titles and texts; a column that nobody fills is left out,
 *  where it is the last. */
Widths widths_of(const std::vector<std::pair<std::string, Device>> &rows) {
    Widths widths{};
    for (size_t i = 0; i < device_columns.size(); ++i) {
        size_t used = 0;
        for (const auto &[serial, device] : rows) {
            used = std::max(used,
                            tools::columns(tools::shown(device_columns[i].text(serial, device))));
        }
        const size_t title = std::string_view(device_columns[i].title).size();
        const bool empty_end = i + 1 == device_columns.size() && used == 0;
        widths[i] = empty_end ? 0 : std::min(std::max(used, title), device_columns[i].widest);
    }
    return widths;
}

template <typename Text>
std::string row(const Widths &widths, Text text) {
    std::string line;
    for (size_t i = 0; i < device_columns.size(); ++i) {
        if (widths[i] > 0) {
            line += (line.empty() ? "" : "  ") + tools::cell(text(device_columns[i]), widths[i]);
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return one_row(line) + "\n";
}

void print_table(const std::vector<std::pair<std::string, Device>> &rows) {
    const Widths widths = widths_of(rows);
    std::string text = row(widths, [](const Column &column) { return std::string(column.title); });
    for (const auto &[serial, device] : rows) {
        text += row(widths, [&](const Column &column) { return column.text(serial, device); });
    }
    print(text);
}

Json as_json(const std::string &serial, const Device &device) {
    Json line = {{"serial", serial}, {"state", device.presence.state()}};
    if (device.presence.since != 0) {
        line["connected"] = utc(device.presence.since);
    }
    line["identity"] = device.identity.is_object() ? device.identity : Json();
    return line;
}

void list(const Options &options, const ListWish &wish) {
    Session session(access_of(options));
    Fleet fleet;
    load(session, fleet, wish.filter);
    std::vector<std::pair<std::string, Device>> rows;
    for (const auto &[serial, device] : fleet.devices()) {
        if (wish.filter.takes(serial, device)) {
            rows.emplace_back(serial, device);
        }
    }
    if (!wish.json) {
        print_table(rows);
        return;
    }
    std::string lines;
    for (const auto &[serial, device] : rows) {
        lines += json_line(as_json(serial, device));
    }
    print(lines);
}

}  // namespace

void add_devices_command(CLI::App &app, const Options &options) {
    CLI::App *command = app.add_subcommand("devices", "Lists the devices that the broker knows");
    command->footer(
        "Examples:\n"
        "  nxctl devices 'SN*' --offline\n"
        "  nxctl devices --json | jq -r 'select(.state == \"online\") | .serial'");
    const auto wish = std::make_shared<ListWish>();
    add_serials(*command, wish->filter, options, "Serial numbers and patterns; else all");
    add_filter_options(*command, wish->filter);
    command->add_flag("--json", wish->json, "A JSON object a line");
    command->callback([&options, wish] { list(options, *wish); });
}

}  // namespace nxctl
