#include "controller/desired/fields.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace desired {
namespace {

constexpr std::array band_names{"2.4", "5"};
constexpr std::array securities{"open", "wpa", "wpa2"};
constexpr std::array ciphers{"aes", "tkip", "tkip+aes"};
constexpr std::array weekdays{"mon", "tue", "wed", "thu", "fri", "sat", "sun"};
constexpr std::array bind_policies{"unbound", "always", "never"};
constexpr std::array drift_policies{"show", "force"};

std::string joined(std::span<const char *const> names) {
    std::string all;
    for (const char *name : names) {
        all += (all.empty() ? "\"" : ", \"") + std::string(name) + "\"";
    }
    return all;
}

std::string boolean(const Json &in, Json &out) {
    out = in;
    return in.is_boolean() ? "" : "must be true or false";
}

template <int64_t Least, int64_t Most>
std::string number(const Json &in, Json &out) {
    out = in;
    const bool fits =
        in.is_number_unsigned()
            ? in.get<uint64_t>() <= static_cast<uint64_t>(Most) && in.get<int64_t>() >= Least
            : in.is_number_integer() && in.get<int64_t>() >= Least && in.get<int64_t>() <= Most;
    return fits ? ""
                : "must be a whole number from " + std::to_string(Least) + " to " +
                      std::to_string(Most);
}

bool is_control(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

/** Lengths count bytes: so do the device's. */
template <size_t Least, size_t Most>
std::string text(const Json &in, Json &out) {
    out = in;
    const bool fits = in.is_string() && in.get_ref<const std::string &>().size() >= Least &&
                      in.get_ref<const std::string &>().size() <= Most &&
                      std::ranges::none_of(in.get_ref<const std::string &>(), is_control);
    return fits ? ""
                : "must be a text of " + std::to_string(Least) + " to " + std::to_string(Most) +
                      " bytes without control characters";
}

template <Check Inner>
std::string or_null(const Json &in, Json &out) {
    out = in;
    const std::string fault = in.is_null() ? "" : Inner(in, out);
    return fault.empty() ? "" : fault + ", or null";
}

template <const auto &Names>
std::string one_of(const Json &in, Json &out) {
    out = in;
    return std::ranges::find(Names, in) != Names.end() ? "" : "must be one of " + joined(Names);
}

/** In the order of the names, each once. */
template <const auto &Names>
std::string some_of(const Json &in, Json &out) {
    out = Json::array();
    for (const char *name : Names) {
        if (in.is_array() && std::ranges::count(in, Json(name)) == 1) {
            out.push_back(name);
        }
    }
    return !out.empty() && out.size() == in.size()
               ? ""
               : "must be a list of at least one of " + joined(Names) + ", each once";
}

/** Hours from UTC as the agent reads them; two spellings of one zone are one. */
std::string time_zone(const Json &in, Json &out) {
    constexpr const char *fault =
        "must be hours from UTC from \"-12\" to \"+14\", such as \"+5.5\"";
    const std::string given = in.is_string() ? in.get<std::string>() : "";
    const size_t digits = given.find_first_of("0123456789");
    if (given.size() > 6 || digits > 1 || (digits == 1 && given[0] != '+' && given[0] != '-') ||
        given.find_first_not_of("0123456789.", digits) != std::string::npos ||
        std::ranges::count(given, '.') > 1) {
        return fault;
    }
    const double hours = std::strtod(given.c_str(), nullptr);
    if (hours < -12 || hours > 14) {
        return fault;
    }
    char canonical[16];
    snprintf(canonical, sizeof canonical, "%+.2f", hours);
    std::string zone = canonical;
    zone.erase(zone.find_last_not_of('0') + 1);
    zone.erase(zone.find_last_not_of('.') + 1);
    out = zone == "-0" ? "+0" : zone;
    return "";
}

std::string passphrase(const Json &in, Json &out) {
    out = in;
    const std::string given = in.is_string() ? in.get<std::string>() : "";
    const bool is_key = given.size() == 64 &&
                        given.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const bool is_phrase = given.size() >= 8 && given.size() <= 63 &&
                           std::ranges::all_of(given, [](char c) { return c >= ' ' && c <= '~'; });
    return is_key || is_phrase ? "" : "must be 8 to 63 printable characters or 64 hex digits";
}

struct ChannelRange {
    int first, last, step;
};
/** The devices run by the rules of "CN" on 2.4 GHz and of "US" on 5 GHz. */
constexpr std::array channels_24{ChannelRange{1, 13, 1}};
constexpr std::array channels_5{ChannelRange{36, 64, 4}, ChannelRange{100, 144, 4},
                                ChannelRange{149, 165, 4}};

template <const auto &Ranges>
std::string channel(const Json &in, Json &out) {
    out = in;
    const int64_t given = in.is_number_integer() ? in.get<int64_t>() : 0;
    const bool fits = in == "auto" || std::ranges::any_of(Ranges, [given](ChannelRange range) {
                          return given >= range.first && given <= range.last &&
                                 (given - range.first) % range.step == 0;
                      });
    return fits ? "" : "must be \"auto\" or a channel of the band";
}

std::string time_of_day(const Json &in, Json &out) {
    out = in;
    const std::string given = in.is_string() ? in.get<std::string>() : "";
    const bool fits = given.size() == 5 && given.find(':') == 2 && given.rfind(':') == 2 &&
                      given.find_first_not_of("0123456789:") == std::string::npos &&
                      given.substr(0, 2) <= "23" && given.substr(3) <= "59";
    return fits ? "" : "must be a time of day such as \"04:30\"";
}

constexpr std::array site_rows{
    Field{"id", or_null<text<1, 64>>, "null"},
    Field{"name", text<1, 128>, nullptr},
    Field{"time_zone", time_zone, "\"+8\""},
    Field{"region", number<0, 999>, "38"},
    Field{"project_id", number<0, 9'999'999>, nullptr},  // the device reads back seven digits
    Field{"cloud_id", text<0, 63>, nullptr},
};

constexpr std::array policy_rows{
    Field{"bind", one_of<bind_policies>, "\"unbound\""},
    Field{"drift", one_of<drift_policies>, "\"show\""},
};

constexpr std::array ssid_rows{
    Field{"name", text<1, 32>, nullptr},
    Field{"bands", some_of<band_names>, nullptr},
    Field{"enabled", boolean, "true"},
    Field{"hidden", boolean, "false"},
    Field{"security", one_of<securities>, nullptr},
    Field{"cipher", one_of<ciphers>, "\"aes\""},
    Field{"passphrase", or_null<passphrase>, "null"},
    Field{"vlan", or_null<number<1, 4094>>, "null"},
    Field{"isolate_clients", boolean, "false"},
    Field{"max_clients", number<0, 512>, "0"},
    Field{"off_times", or_null<text<1, 255>>, "null"},
};

template <const auto &Channels>
constexpr std::array radio_rows{
    Field{"enabled", boolean, "true"},
    Field{"channel", channel<Channels>, "\"auto\""},
    Field{"power_dbm", number<0, 30>, "20"},
    Field{"min_signal_dbm", number<-100, 0>, "-90"},
};

constexpr std::array weekly_rows{
    Field{"at", time_of_day, nullptr},
    Field{"days", some_of<weekdays>, nullptr},
};
constexpr std::array cyclic_rows{Field{"every_minutes", number<10, 43'200>, nullptr}};

}  // namespace

const std::span<const Field> site_fields = site_rows;
const std::span<const Field> policy_fields = policy_rows;
const std::span<const Field> ssid_fields = ssid_rows;
const std::array<std::span<const Field>, std::size(bands)> radio_fields{radio_rows<channels_24>,
                                                                        radio_rows<channels_5>};
const std::span<const Field> weekly_fields = weekly_rows;
const std::span<const Field> cyclic_fields = cyclic_rows;

}  // namespace desired
