/*
 * Profiles: ~/.config/nxctl.json names brokers, so that nobody types files and addresses.
 */
#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>

#include "tools/nxctl_files.h"
#include "tools/nxctl_json.h"
#include "tools/nxctl_options.h"

namespace nxctl {
namespace {

namespace fs = std::filesystem;
using tools::Failure;

constexpr const char *usual_broker = "mqtt://127.0.0.1:1883";

/** How a profile writes a value. */
enum class Kind { text, path, file /**< of whose first line it is */ };

/** What a profile may say, and where it goes. */
struct Entry {
    const char *name;
    std::string Access::*member;
    Kind kind;
};

constexpr std::array entries{
    Entry{"broker", &Access::broker, Kind::text},
    Entry{"user", &Access::user, Kind::text},
    Entry{"password_file", &Access::password, Kind::file},
    Entry{"ca", &Access::cafile, Kind::path},
    Entry{"cert", &Access::certfile, Kind::path},
    Entry{"key", &Access::keyfile, Kind::path},
};

std::string environment(const char *name) {
    const char *value = getenv(name);
    return value == nullptr ? "" : value;
}

fs::path profile_file() {
    const std::string configured = environment("XDG_CONFIG_HOME");
    return (configured.empty() ? fs::path(environment("HOME")) / ".config" : fs::path(configured)) /
           "nxctl.json";
}

/** The first line of a file. */
std::string password_in(const fs::path &path) {
    const std::string text = whole_file(path.string());
    return text.substr(0, text.find_first_of("\r\n"));
}

/** A path as a profile writes it: from the home folder, or from the profile's own. */
std::string full_path(const std::string &written) {
    const bool from_home = written.starts_with("~/");
    const fs::path base = from_home ? fs::path(environment("HOME")) : profile_file().parent_path();
    return (base / written.substr(from_home ? 2 : 0)).string();
}

/** The profiles; an empty object without a file. */
Json profiles() {
    const fs::path file = profile_file();
    std::error_code error;
    if (!fs::exists(file, error)) {
        return Json::object();
    }
    const auto document = parse_json(whole_file(file.string()));
    const Json *found = document ? member(*document, "profiles") : nullptr;
    if (found == nullptr || !found->is_object()) {
        throw Failure(file.string() +
                      " is no list of profiles: {\"default\": NAME, \"profiles\": {NAME: {...}}}");
    }
    return *document;
}

[[noreturn]] void wrong(const std::string &profile, const std::string &what) {
    throw Failure("profile \"" + profile + "\" in " + profile_file().string() + ": " + what);
}

Access read_profile(const std::string &name, const Json &profile) {
    if (!profile.is_object()) {
        wrong(name, "it is no object");
    }
    Access access;
    for (const auto &[key, value] : profile.items()) {
        const auto *const entry =
            std::ranges::find_if(entries, [&](const Entry &row) { return key == row.name; });
        if (entry == entries.end() || !value.is_string()) {
            wrong(name, entry == entries.end() ? "there is no entry \"" + key + "\""
                                               : "\"" + key + "\" is no text");
        }
        const std::string written = value;
        access.*entry->member = entry->kind == Kind::text   ? written
                                : entry->kind == Kind::path ? full_path(written)
                                                            : password_in(full_path(written));
    }
    return access;
}

/** The profile that counts; an empty one when none does. */
Access chosen_profile(const Options &options) {
    if (options.profile.empty() && !options.access.broker.empty()) {
        return {};
    }
    const Json document = profiles();
    const std::string name =
        options.profile.empty() ? text(document, "default").value_or("") : options.profile;
    if (name.empty()) {
        return {};
    }
    const Json *list = member(document, "profiles");
    const Json *profile = list == nullptr ? nullptr : member(*list, name);
    if (profile == nullptr) {
        throw tools::Misuse("there is no profile \"" + name + "\" in " + profile_file().string());
    }
    return read_profile(name, *profile);
}

std::vector<std::string> profile_names() {
    std::vector<std::string> names;
    const Json document = profiles();
    if (const Json *list = member(document, "profiles")) {
        for (const auto &[name, profile] : list->items()) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace

void add_access_options(CLI::App &app, Options &options) {
    Access &access = options.access;
    const auto add = [&](const char *name, std::string &value, const char *kind,
                         const char *variable, const char *description) {
        return app.add_option(name, value, description)->type_name(kind)->envname(variable);
    };
    tools::offer(add("--profile", options.profile, "NAME", "NXCTL_PROFILE",
                     "Entry of ~/.config/nxctl.json to use"),
                 profile_names);
    add("--broker", access.broker, "URL", "NXCTL_BROKER",
        "mqtt://HOST[:PORT] or mqtts://HOST[:PORT], several with commas; else this machine's, "
        "port 1883");
    add("--user", access.user, "NAME", "NXCTL_USER", "User name at the broker");
    add("--password-file", options.password_file, "FILE", "NXCTL_PASSWORD_FILE",
        "File with the password in its first line");
    add("--ca", access.cafile, "FILE", "NXCTL_CA", "Root certificate of a mqtts:// broker (PEM)");
    add("--cert", access.certfile, "FILE", "NXCTL_CERT", "The console's own certificate (PEM)");
    add("--key", access.keyfile, "FILE", "NXCTL_KEY", "Key of that certificate (PEM)");
}

Access access_of(const Options &options) {
    Access access = chosen_profile(options);
    for (const Entry &entry : entries) {
        if (!(options.access.*entry.member).empty()) {
            access.*entry.member = options.access.*entry.member;
        }
    }
    if (!options.password_file.empty()) {
        access.password = password_in(options.password_file);
    } else if (getenv("NXCTL_PASSWORD") != nullptr) {
        access.password = environment("NXCTL_PASSWORD");
    }
    if (access.broker.empty()) {
        access.broker = usual_broker;
    }
    if (access.user.empty() && !options.password_file.empty()) {
        throw tools::Misuse("a password needs --user NAME");
    }
    return access;
}

}  // namespace nxctl
