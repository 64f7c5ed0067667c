#include "tools/vap_cloud.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <sstream>
#include <utility>
#include <vector>

#include "nxapi/settings.h"
#include "tools/cli.h"
#include "virtual/folder/files.h"

namespace {

using std::filesystem::path;
using Changes = std::vector<std::pair<std::string, std::string>>;

/** The device's folder for PEM files. */
constexpr const char *pem_folder = "/etc/nxapi/";

struct Pem {
    path CloudArguments::*given;
    std::string nxapi::Settings::*setting;
    const char *key;   /**< of the setting */
    const char *name;  /**< in the device's folder */
    const char *holds; /**< what its text holds, and in words */
    const char *what;
    const char *never = nullptr; /**< what it does not hold */
};

constexpr Pem pems[] = {
    {&CloudArguments::ca, &nxapi::Settings::cafile, "cafile", "ca.crt",
     "-----BEGIN CERTIFICATE-----", "certificate"},
    {&CloudArguments::cert, &nxapi::Settings::certfile, "certfile", "device.crt",
     "-----BEGIN CERTIFICATE-----", "certificate"},
    {&CloudArguments::key, &nxapi::Settings::keyfile, "keyfile", "device.key", " PRIVATE KEY-----",
     "key without a pass phrase", "ENCRYPTED"},
};

std::string read_text(const path &file) {
    const std::optional<std::string> text = vap::read_file(file);
    if (!text) {
        throw tools::Failure(tools::cannot("read", file));
    }
    return *text;
}

std::string read_pem(const path &file, const Pem &pem) {
    const std::string text = read_text(file);
    const bool spoilt = pem.never != nullptr && text.find(pem.never) != text.npos;
    if (spoilt || text.find(pem.holds) == text.npos) {
        throw tools::Failure(file.string() + " is no PEM file with a " + pem.what);
    }
    return text;
}

void write_file(const path &file, const std::string &text) {
    if (!vap::make_folders(file.parent_path()) || !vap::replace_file(file, text)) {
        throw tools::Failure(tools::cannot("write", file));
    }
}

/** The lines of a settings file with another value for a key. */
std::string with_setting(const std::string &text, const std::string &key,
                         const std::string &value) {
    std::istringstream lines(text);
    std::string changed;
    bool placed = false;
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find('=');
        if (equals == line.npos || CLI::detail::trim_copy(line.substr(0, equals)) != key) {
            changed += line + "\n";
        } else if (!placed) {
            changed += key + "=" + value + "\n";
            placed = true;
        }
    }
    return placed ? changed : changed + key + "=" + value + "\n";
}

/** The file that a setting names: the device's own folder stands in its root. */
path on_machine(const path &folder, const std::string &file) {
    return file.starts_with(pem_folder) ? path(folder / "root").concat(file) : path(file);
}

void warn(const path &folder, const path &conf, const nxapi::Settings &settings) {
    if (settings.brokers.empty()) {
        fprintf(stderr, "vap: %s names no broker: the agent runs without a cloud\n", conf.c_str());
    }
    for (const Pem &pem : pems) {
        const std::string &named = settings.*pem.setting;
        const path file = on_machine(folder, named);
        if (!named.empty() && !vap::read_file(file)) {
            fprintf(stderr, "vap: %s (%s= in %s)\n", tools::cannot("read", file).c_str(), pem.key,
                    conf.c_str());
        }
    }
}

}  // namespace

std::string check_broker(const std::string &address) {
    if (address.find('@') != address.npos) {
        return "user name and password do not stand in the address, but as username= and "
               "password= in root/etc/nxapi.conf of the device's folder";
    }
    if (std::ranges::any_of(address, [](unsigned char c) { return iscntrl(c); })) {
        return "an address has no control characters";
    }
    std::vector<nxapi::BrokerAddress> parsed;
    const char *fault = nxapi::broker_list_fault(address, parsed);
    return fault == nullptr ? "" : "\"" + address + "\" " + fault;
}

void store_cloud_settings(const path &folder, const CloudArguments &given) {
    const path conf = path(folder / "root").concat(nxapi::settings_path);
    Changes changes;
    Changes files;
    if (!given.broker.empty()) {
        changes.emplace_back("broker", given.broker);
    }
    for (const Pem &pem : pems) {
        if (const path &file = given.*pem.given; !file.empty()) {
            const std::string stored = std::string(pem_folder) + pem.name;
            files.emplace_back(on_machine(folder, stored), read_pem(file, pem));
            changes.emplace_back(pem.key, stored);
        }
    }
    std::error_code error;
    std::string text = std::filesystem::exists(conf, error) ? read_text(conf) : "";
    for (const auto &[key, value] : changes) {
        text = with_setting(text, key, value);
    }
    nxapi::Settings settings;
    std::string why;
    if (!nxapi::parse_settings(text, settings, why)) {
        throw tools::Failure(conf.string() + (changes.empty() ? ", " : " stays as it is: ") + why);
    }
    for (const auto &[file, content] : files) {
        write_file(file, content);
    }
    if (!changes.empty()) {
        write_file(conf, text);
    }
    warn(folder, conf, settings);
}
