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

/** A row of the list. */
struct Listed {
    std::string serial;
    Device device;
    std::string broker; /**< that counts; empty where there is one only */
};

struct Column {
    const char *title;
    size_t widest; /**< columns of the terminal: a device writes what it likes */
    std::string (*text)(const Listed &row);
    bool is_optional = false; /**< left out when no row fills it */
};

constexpr std::array device_columns{
    Column{"SERIAL", 32, [](const Listed &row) { return row.serial; }},
    Column{"STATE", 7, [](const Listed &row) { return row.device.presence().state(); }},
    Column{"MODEL", 16, [](const Listed &row) { return row.device.told("model"); }},
    Column{"FIRMWARE", 32, [](const Listed &row) { return row.device.told("firmware_version"); }},
    Column{"MAC", 17, [](const Listed &row) { return row.device.told("mac"); }},
    Column{"CONNECTED", 17,
           [](const Listed &row) {
               const double since = row.device.presence().since;
               return since == 0 ? std::string() : utc_minutes(since);
           },
           true},
    Column{"BROKER", 32, [](const Listed &row) { return row.broker; }, true},
};

using Widths = std::array<size_t, device_columns.size()>;

constexpr std::string_view gap = "  ";

/** As wide as titles and texts need; 0 for a column that is left out: an optional one that
 *  nobody fills, and the last ones when the terminal is too narrow for them. */
Widths widths_of(const std::vector<Listed> &rows) {
    Widths widths{};
    const size_t room = terminal_width();
    size_t end = 0;
    for (size_t i = 0; i < device_columns.size(); ++i) {
        const Column &column = device_columns[i];
        size_t used = 0;
        for (const Listed &row : rows) {
            used = std::max(used, tools::columns(tools::shown(column.text(row))));
        }
        if (column.is_optional && used == 0) {
            continue;
        }
        const size_t title = std::string_view(column.title).size();
        const size_t width = std::min(std::max(used, title), column.widest);
        end += (i == 0 ? 0 : gap.size()) + width;
        if (room > 0 && end > room && i > 0) {
            break;
        }
        widths[i] = width;
    }
    return widths;
}

template <typename Text>
std::string line_of(const Widths &widths, Text text) {
    std::string line;
    for (size_t i = 0; i < device_columns.size(); ++i) {
        if (widths[i] > 0) {
            line.append(line.empty() ? "" : gap)
                .append(tools::cell(text(device_columns[i]), widths[i]));
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return one_row(line) + "\n";
}

void print_table(const std::vector<Listed> &rows) {
    const Widths widths = widths_of(rows);
    std::string text =
        line_of(widths, [](const Column &column) { return std::string(column.title); });
    for (const Listed &row : rows) {
        text += line_of(widths, [&](const Column &column) { return column.text(row); });
    }
    print(text);
}

Json as_json(const Listed &row) {
    const Presence presence = row.device.presence();
    Json line = {{"serial", row.serial}, {"state", presence.state()}};
    if (presence.since != 0) {
        line["connected"] = utc(presence.since);
    }
    if (!row.broker.empty()) {
        line["broker"] = row.broker;
    }
    line["identity"] = row.device.identity().is_object() ? row.device.identity() : Json();
    return line;
}

void list(const Options &options, const ListWish &wish) {
    Brokers brokers(access_of(options));
    Fleet fleet;
    load(brokers, fleet, wish.filter);
    std::vector<Listed> rows;
    for (const auto &[serial, device] : fleet.devices()) {
        if (wish.filter.takes(serial, device)) {
            const bool is_one = brokers.count() == 1;
            rows.push_back({serial, device, is_one ? "" : brokers.address(device.broker())});
        }
    }
    if (!wish.json) {
        print_table(rows);
        return;
    }
    std::string lines;
    for (const Listed &row : rows) {
        lines += json_line(as_json(row));
    }
    print(lines);
}

}  // namespace

void add_devices_command(CLI::App &app, const Options &options) {
    CLI::App *command = app.add_subcommand("devices", "Lists the devices that the brokers know");
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
