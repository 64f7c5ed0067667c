/**
 * What an agent understands and sends: the catalogue of tools/commands.json, which is
 * part of the program.
 */
#ifndef TOOLS_NXCTL_COMMANDS_H
#define TOOLS_NXCTL_COMMANDS_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/nxapi.h"
#include "tools/nxctl_json.h"

namespace nxctl {

struct FamilySize {
    std::string_view name;
    size_t slots;
};

inline constexpr auto families = std::to_array<FamilySize>({
    {"cloud", NX_CLOUD_SLOTS},
    {"dev", NX_DEV_SLOTS},
    {"net", NX_NET_SLOTS},
    {"wlan", NX_WLAN_SLOTS},
});

/** The uploads whose first ends an order, and the seconds in which it ought to come. */
struct Completion {
    std::vector<std::string> uploads;
    double seconds = 0;
};

struct Command {
    std::string family;
    size_t slot = 0;
    std::string name; /**< of the agent's handler */
    std::string does;
    std::string fails_when; /**< it answers -1; empty where only memory can be short */
    bool refused_when_local = false;
    Json request; /**< its JSON Schema; null for a command that reads none */
    Json example; /**< a request; null for none */
    Completion completion;

    /** "<family>/<slot>". */
    std::string target() const;
};

/** In the order of families and slots. */
const std::vector<Command> &commands();

/** The command of a handler's name or of "<family>/<slot>"; null for none. */
const Command *find_command(std::string_view name);

/** "<family>/<slot>" or "system/serial" of what the user named; throws Misuse for what is
 *  no slot of a family. */
std::string target_of(const std::string &name);

/** The names of all commands. */
std::vector<std::string> command_names();

/** How the payload of an upload looks. */
enum class Format { json, text, file };

struct UploadKind {
    std::string kind;
    std::string does;
    Format format = Format::json;
};

const std::vector<UploadKind> &upload_kinds();

/** The format of a kind; text for one that is not known. */
Format format_of(std::string_view kind);

/** What stands in front of a definition's name in a "$ref". */
inline constexpr std::string_view definitions = "#/$defs/";

/** A text of the catalogue without the marks of documentation: `code`, [text](link). */
std::string unmarked(const std::string &text);

/** A schema whose "$ref", if it has one, is put in; its own members win. */
Json resolved(const Json &schema);

/** The schema of "$defs" with this name; null for none. */
const Json *definition(const std::string &name);

}  // namespace nxctl

#endif
