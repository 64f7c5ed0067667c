#include "tools/nxctl_commands.h"

#include <algorithm>

#include "commands_json.h"
#include "nxapi/broker_address.h"
#include "nxapi/topics.h"
#include "tools/cli.h"

namespace nxctl {
namespace {

const Json &catalogue() {
    static const Json document = Json::parse(commands_json);
    return document;
}

Command command_of(const Json &entry) {
    Command command;
    command.family = entry.at("family");
    command.slot = entry.at("slot");
    command.name = entry.at("name");
    command.does = entry.at("does");
    command.fails_when = entry.value("fails_when", "");
    command.refused_when_local = entry.value("refused_when_local", false);
    command.request = entry.value("request", Json());
    command.example = entry.value("example", Json());
    if (const Json *completion = member(entry, "completed_by")) {
        command.completion.uploads = completion->at("uploads");
        command.completion.seconds = completion->at("seconds");
    }
    return command;
}

UploadKind kind_of(const Json &entry) {
    const std::string format = entry.at("format");
    return {entry.at("kind"), entry.at("does"),
            format == "json"   ? Format::json
            : format == "file" ? Format::file
                               : Format::text};
}

size_t slots_of(std::string_view family) {
    const auto *const found = std::ranges::find(families, family, &FamilySize::name);
    return found == families.end() ? 0 : found->slots;
}

}  // namespace

std::string Command::target() const {
    return nxapi::topics::slot(family, slot);
}

const std::vector<Command> &commands() {
    static const std::vector<Command> all = [] {
        std::vector<Command> list;
        std::ranges::transform(catalogue().at("commands"), std::back_inserter(list), command_of);
        return list;
    }();
    return all;
}

const Command *find_command(std::string_view name) {
    const auto found = std::ranges::find_if(commands(), [&](const Command &command) {
        return command.name == name || command.target() == name;
    });
    return found == commands().end() ? nullptr : &*found;
}

std::string target_of(const std::string &name) {
    if (const Command *command = find_command(name)) {
        return command->target();
    }
    if (name == nxapi::topics::serial) {
        return name;
    }
    const size_t slash = name.find('/');
    if (slash == name.npos) {
        throw tools::Misuse("there is no command \"" + name + "\"; nxctl commands lists them");
    }
    const std::string family = name.substr(0, slash);
    const size_t slots = slots_of(family);
    long slot = 0;
    if (slots == 0 ||
        !nxapi::parse_number(name.substr(slash + 1), 0, static_cast<long>(slots) - 1, slot)) {
        throw tools::Misuse("\"" + name + "\" is no slot of a family; nxctl commands lists them");
    }
    return nxapi::topics::slot(family, static_cast<size_t>(slot));
}

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    std::ranges::transform(commands(), std::back_inserter(names), &Command::name);
    return names;
}

const std::vector<UploadKind> &upload_kinds() {
    static const std::vector<UploadKind> all = [] {
        std::vector<UploadKind> list;
        std::ranges::transform(catalogue().at("uploads"), std::back_inserter(list), kind_of);
        return list;
    }();
    return all;
}

Format format_of(std::string_view kind) {
    const auto found = std::ranges::find(upload_kinds(), kind, &UploadKind::kind);
    return found == upload_kinds().end() ? Format::text : found->format;
}

const Json *definition(const std::string &name) {
    return member(catalogue().at("$defs"), name);
}

std::string unmarked(const std::string &text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ']' && text.compare(i, 2, "](") == 0) {
            i = std::min(text.find(')', i), text.size() - 1);
        } else if (text[i] != '`' && text[i] != '[') {
            plain += text[i];
        }
    }
    return plain;
}

Json resolved(const Json &schema) {
    const auto reference = text(schema, "$ref");
    if (!reference) {
        return schema;
    }
    Json whole = *definition(reference->substr(definitions.size()));
    for (const auto &[key, value] : schema.items()) {
        if (key != "$ref") {
            whole[key] = value;
        }
    }
    return whole;
}

}  // namespace nxctl
