#include "nxapi/settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>

namespace nxapi {
namespace {

/** Takes a value; on failure `why` gets the end of a sentence that the key begins. It
 *  does not repeat the value: any line may hold a password by mistake. */
using Apply = bool (*)(Settings &settings, std::string_view value, std::string &why);

bool apply_broker(Settings &settings, std::string_view value, std::string &why) {
    const char *fault = broker_list_fault(value, settings.brokers);
    why = fault == nullptr ? "" : fault;
    return fault == nullptr;
}

template <std::string Settings::*member>
bool apply_text(Settings &settings, std::string_view value, std::string &) {
    settings.*member = value;
    return true;
}

template <int Settings::*member, long least, long most>
bool apply_number(Settings &settings, std::string_view value, std::string &why) {
    long number = 0;
    if (!parse_number(value, least, most, number)) {
        why = "is no number between " + std::to_string(least) + " and " + std::to_string(most);
        return false;
    }
    settings.*member = static_cast<int>(number);
    return true;
}

bool apply_verify(Settings &settings, std::string_view value, std::string &why) {
    settings.tls_verify = value == "yes";
    why = "is neither yes nor no";
    return settings.tls_verify || value == "no";
}

bool apply_fault(Settings &settings, std::string_view value, std::string &why) {
    const size_t colon = value.find(':');
    long result = 0;
    if (colon == 0 || colon == value.npos ||
        !parse_number(value.substr(colon + 1), INT_MIN, INT_MAX, result)) {
        why = "is no call with its result, such as nx_api_lib_init:-1";
        return false;
    }
    settings.faults.emplace_back(value.substr(0, colon), static_cast<int>(result));
    return true;
}

struct Key {
    std::string_view name;
    Apply apply;
    bool repeatable = false;
};

constexpr Key keys[] = {
    {"broker", apply_broker},
    {"username", apply_text<&Settings::username>},
    {"password", apply_text<&Settings::password>},
    {"client_id", apply_text<&Settings::client_id>},
    {"cafile", apply_text<&Settings::cafile>},
    {"certfile", apply_text<&Settings::certfile>},
    {"keyfile", apply_text<&Settings::keyfile>},
    {"tls_verify", apply_verify},
    {"keepalive_s", apply_number<&Settings::keepalive_s, 5, 65535>},
    {"retry_ms", apply_number<&Settings::retry_ms, 1, 60'000>},
    {"connect_timeout_ms", apply_number<&Settings::connect_timeout_ms, 10, 600'000>},
    {"queue_messages", apply_number<&Settings::queue_messages, 1, 100'000>},
    {"queue_bytes", apply_number<&Settings::queue_bytes, 1024, 256 << 20>},
    {"fault", apply_fault, true},
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == text.npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/** What one setting alone cannot tell. */
bool settings_agree(const Settings &settings, std::string &why) {
    if (settings.certfile.empty() != settings.keyfile.empty()) {
        why = "certfile and keyfile are set together or not at all";
        return false;
    }
    if (std::ranges::any_of(settings.brokers, &BrokerAddress::tls) && settings.cafile.empty()) {
        why = "a mqtts:// broker needs cafile, the root certificate that vouches for it";
        return false;
    }
    return true;
}

/** Reads the settings one by one, each of them once. */
class Reader {
  public:
    explicit Reader(Settings &settings) : settings_(settings) {}

    bool take(std::string_view line, std::string &why) {
        if (line.empty() || line.front() == '#') {
            return true;
        }
        const size_t equals = line.find('=');
        if (equals == line.npos) {
            why = "this is no key=value";
            return false;
        }
        const std::string_view name = trimmed(line.substr(0, equals));
        const Key *key = std::find_if(std::begin(keys), std::end(keys),
                                      [&](const Key &k) { return k.name == name; });
        if (key == std::end(keys)) {
            why = "there is no setting of this name";
            return false;
        }
        bool &seen = seen_[static_cast<size_t>(key - keys)];
        if (std::exchange(seen, true) && !key->repeatable) {
            why = std::string(name) + " is set a second time";
            return false;
        }
        if (!key->apply(settings_, trimmed(line.substr(equals + 1)), why)) {
            why = std::string(name) + " " + why;
            return false;
        }
        return true;
    }

  private:
    Settings &settings_;
    std::array<bool, std::size(keys)> seen_{};
};

}  // namespace

bool parse_settings(std::string_view text, Settings &settings, std::string &why) {
    Reader reader(settings);
    for (int line = 1; !text.empty(); ++line) {
        const size_t end = text.find('\n');
        if (!reader.take(trimmed(text.substr(0, end)), why)) {
            why = "line " + std::to_string(line) + ": " + why;
            return false;
        }
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return settings_agree(settings, why);
}

SettingsFile read_settings(const char *path, Settings &settings, std::string &why) {
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path, "re"), std::fclose);
    if (file == nullptr) {
        why = std::string("cannot read ") + path + " (" + std::strerror(errno) + ")";
        return SettingsFile::missing;
    }
    std::string text;
    char buffer[1024];
    while (const size_t count = std::fread(buffer, 1, sizeof(buffer), file.get())) {
        text.append(buffer, count);
    }
    if (std::ferror(file.get()) != 0) {
        why = std::string("cannot read ") + path + " (" + std::strerror(errno) + ")";
        return SettingsFile::missing;
    }
    if (!parse_settings(text, settings, why)) {
        why = std::string(path) + ", " + why;
        return SettingsFile::malformed;
    }
    return SettingsFile::read;
}

}  // namespace nxapi
