/*
 * nxctl commands: what an agent understands, from the catalogue.
 */
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>

#include "tools/nxctl_commands.h"
#include "tools/nxctl_files.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_output.h"
#include "tools/text.h"

namespace nxctl {
namespace {

struct ReferenceWish {
    std::string name;
    bool json = false;
    bool markdown = false;
};

/** A member of a request, as a table shows it. */
struct Row {
    std::string path; /**< "schedule_reboot.start_time", "time_array[].mode" */
    std::string type, standard, meaning;
};

std::string noun_of(const std::string &type) {
    return type == "integer" ? "number" : type == "string" ? "text" : type;
}

/** "0 open, 1 WPA-PSK; anything else leaves it" */
std::string meaning_of(const Json &schema) {
    std::string all;
    if (const Json *choices = member(schema, "oneOf")) {
        for (const Json &choice : *choices) {
            all += (all.empty() ? "" : ", ") + choice.at("const").dump() + " " +
                   text(choice, "title").value_or("");
        }
    }
    const std::string description = text(schema, "description").value_or("");
    return all + (all.empty() || description.empty() ? "" : "; ") + description;
}

/** Places of a request that hold what a definition describes, in the order in which they
 *  were met: "ssid" at "radio1[]" and "radio2[]". */
using Places = std::vector<std::pair<std::string, std::vector<std::string>>>;

void note(Places &places, const Json &schema, const std::string &path) {
    const std::string name = text(schema, "$ref").value_or("").substr(definitions.size());
    auto at = std::ranges::find(places, name, [](const auto &place) { return place.first; });
    if (at == places.end()) {
        at = places.insert(at, {name, {}});
    }
    at->second.push_back(path);
}

void add_members(std::vector<Row> &rows, Places &places, const Json &schema,
                 const std::string &path);

/** Members below a value; those of an object with a definition stand in `places`. */
void add_below(std::vector<Row> &rows, Places &places, const Json &written,
               const std::string &path) {
    const Json schema = resolved(written);
    if (const Json *items = member(schema, "items")) {
        add_below(rows, places, *items, path + "[]");
    } else if (written.contains("$ref") && schema.at("type") == "object") {
        note(places, written, path);
    } else {
        add_members(rows, places, schema, path);
    }
}

void add_members(std::vector<Row> &rows, Places &places, const Json &schema,
                 const std::string &path) {
    const Json *properties = member(schema, "properties");
    if (properties == nullptr) {
        return;
    }
    const Json required = schema.value("required", Json::array());
    for (const auto &[name, written] : properties->items()) {
        const Json row = resolved(written);
        if (row.value("deprecated", false)) {
            continue;
        }
        const bool is_needed = std::ranges::find(required, Json(name)) != required.end();
        const std::string full = path.empty() ? name : path + "." + name;
        const Json *standard = member(row, "default");
        rows.push_back({full, noun_of(row.at("type")),
                        standard != nullptr ? standard->dump()
                        : is_needed         ? "required"
                                            : "",
                        meaning_of(row)});
        add_below(rows, places, written, full);
    }
}

/** The members of a request, or of a definition. */
std::vector<Row> rows_of(const Json &written, Places &places) {
    std::vector<Row> rows;
    add_below(rows, places, resolved(written), "");
    return rows;
}

/** The words of a text behind `from` columns of a line, as the terminal is wide. */
std::string wrapped(const std::string &text, size_t from) {
    const size_t width = terminal_width();
    return tools::wrapped(text, width == 0 ? tools::usual_width : width, from);
}

std::string list_of_commands() {
    std::string list;
    for (const FamilySize &family : families) {
        list += std::string(family.name) + " (" + std::to_string(family.slots) + " slots)\n";
        for (const Command &command : commands()) {
            if (command.family == family.name) {
                char front[64];
                const int length = std::snprintf(front, sizeof front, "  %-7s  %-23s  ",
                                                 command.target().c_str(), command.name.c_str());
                list += front + wrapped(command.does, static_cast<size_t>(length)) + "\n";
            }
        }
    }
    return list;
}

std::string table_for_people(const std::vector<Row> &rows) {
    size_t paths = 0;
    size_t standards = 0;
    for (const Row &row : rows) {
        paths = std::max(paths, row.path.size());
        standards = std::max(standards, row.standard.size());
    }
    std::string table;
    for (const Row &row : rows) {
        char front[256];
        const int from = std::snprintf(front, sizeof front, "  %-*s  %-6s  %-*s  ",
                                       static_cast<int>(paths), row.path.c_str(), row.type.c_str(),
                                       static_cast<int>(standards), row.standard.c_str());
        const std::string line = front + wrapped(unmarked(row.meaning), static_cast<size_t>(from));
        table += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return table;
}

std::string tables_for_people(const Json &request) {
    Places places;
    std::string page = table_for_people(rows_of(request, places));
    for (size_t i = 0; i < places.size(); ++i) {  // a definition may lead to others
        const auto [name, paths] = places[i];
        page += "\nMembers of " + CLI::detail::join(paths, ", ") + ":\n\n" +
                table_for_people(rows_of(*definition(name), places));
    }
    return page;
}

std::string completion_text(const Command &command) {
    std::string kinds;
    for (const std::string &kind : command.completion.uploads) {
        kinds += (kinds.empty() ? "" : " or ") + ("up/" + kind);
    }
    return kinds.empty() ? "" : "Completed by the upload " + kinds + " (--follow).\n";
}

std::string describe(const Command &command) {
    std::string page = command.target() + " " + command.name + "\n" + command.does + ".\n";
    if (!command.fails_when.empty()) {
        page += wrapped("Answers -1 when " + unmarked(command.fails_when) + ".", 0) + "\n";
    }
    page += completion_text(command);
    if (command.request.is_null()) {
        return page + "\nThe request has no members.\n\n  nxctl call SERIAL " + command.name + "\n";
    }
    const Json schema = resolved(command.request);
    const std::string type = schema.at("type");
    if (type == "string") {
        return page + "\nRequest: " + text(schema, "description").value_or("") +
               ".\n\n  nxctl call SERIAL " + command.name + " @FILE\n";
    }
    const std::string example = command.example.dump();
    return page + "\nRequest, an " + type + " (member, type, default, meaning):\n\n" +
           tables_for_people(command.request) + "\nExample:\n\n  nxctl call SERIAL " +
           command.name + " '" + example + "'\n";
}

/** The catalogue's entry, with every definition put in. */
Json whole_schema(const Json &schema) {
    Json whole = resolved(schema);
    for (const char *inner : {"properties", "items"}) {
        if (!whole.contains(inner)) {
            continue;
        }
        if (std::string_view(inner) == "items") {
            whole[inner] = whole_schema(whole[inner]);
            continue;
        }
        for (auto &[name, value] : whole[inner].items()) {
            value = whole_schema(value);
        }
    }
    return whole;
}

Json entry_of(const Command &command) {
    Json entry = {{"command", command.target()}, {"name", command.name}, {"does", command.does}};
    entry["fails_when"] = unmarked(command.fails_when);
    entry["refused_when_local"] = command.refused_when_local;
    entry["request"] = command.request.is_null() ? Json() : whole_schema(command.request);
    entry["example"] = command.example;
    entry["completed_by"] = command.completion.uploads;
    return entry;
}

std::string markdown_table(const std::string &name) {
    const Json *defined = definition(name);
    const Command *command = find_command(name);
    if (defined == nullptr && command == nullptr) {
        throw tools::Failure("there is neither a command nor a definition \"" + name + "\"");
    }
    std::string table = "| member | type | default | meaning |\n|---|---|---|---|\n";
    Places places;
    for (const Row &row : rows_of(defined != nullptr ? *defined : command->request, places)) {
        const std::string mark = row.standard.starts_with('"') ? "`" : "";
        table += "| `" + row.path + "` | " + row.type + " | " + mark + row.standard + mark +
                 (row.standard.empty() ? "| " : " | ") + row.meaning + " |\n";
    }
    return table;
}

/** A page of documentation with the table behind each line "<!-- members of NAME -->" made
 *  anew. */
std::string with_tables(const std::string &page) {
    constexpr std::string_view front = "<!-- members of ";
    constexpr std::string_view back = " -->";
    std::istringstream lines(page);
    std::string out;
    bool in_table = false;
    for (std::string line; std::getline(lines, line);) {
        in_table = in_table && line.starts_with('|');
        if (in_table) {
            continue;
        }
        out += line + "\n";
        if (line.starts_with(front) && line.ends_with(back)) {
            const size_t length = line.size() - front.size() - back.size();
            out += markdown_table(line.substr(front.size(), length));
            in_table = true;
        }
    }
    return out;
}

void show(const ReferenceWish &wish) {
    if (wish.markdown) {
        print(with_tables(whole_file("-")));
        return;
    }
    const Command *named = wish.name.empty() ? nullptr : find_command(wish.name);
    if (!wish.name.empty() && named == nullptr) {
        throw tools::Misuse("there is no command \"" + wish.name + "\"; nxctl commands lists them");
    }
    if (!wish.json) {
        print(named == nullptr ? list_of_commands() : describe(*named));
        return;
    }
    std::string list;
    for (const Command &command : commands()) {
        if (named == nullptr || named == &command) {
            list += json_line(entry_of(command));
        }
    }
    print(list);
}

}  // namespace

void add_commands_command(CLI::App &app) {
    CLI::App *command =
        app.add_subcommand("commands", "Lists the commands of the four families, or shows one");
    command->footer(
        "Examples:\n"
        "  nxctl commands wlan_config_set\n"
        "  nxctl commands --json | jq .name");
    const auto wish = std::make_shared<ReferenceWish>();
    tools::offer(command->add_option("NAME", wish->name, "Handler name or family/slot"),
                 command_names);
    command->add_flag("--json", wish->json, "A JSON object a line");
    command
        ->add_flag("--markdown", wish->markdown,
                   "Copies a page, with the tables of members in it made anew")
        ->group("");
    command->callback([wish] { show(*wish); });
}

}  // namespace nxctl
