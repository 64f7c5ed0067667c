/* From hardware.json to typed records. */
#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <functional>

#include "virtual/folder/json.h"
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

void complain(const std::string &path, const char *what) {
    fprintf(stderr, "vap: hardware.json: %s: %s\n", path.c_str(), what);
}

/** A value of the description, with the path that names it in a complaint. */
class Part {
  public:
    Part(const Json *json, std::string path) : json_(json), path_(std::move(path)) {}

    const std::string &path() const { return path_; }
    bool present() const { return json_ != nullptr; }
    bool is_array() const { return json_ != nullptr && json_->is_array(); }

    Part operator[](const char *key) const {
        const bool found = json_ != nullptr && json_->is_object() && json_->contains(key) &&
                           !(*json_)[key].is_null();
        return {found ? &(*json_)[key] : nullptr, path_ + "/" + key};
    }

    std::optional<double> number(double least, double most) const {
        const std::optional<double> number =
            json_ == nullptr ? std::nullopt : number_of(*json_, least, most);
        if (json_ != nullptr && !number) {
            char range[80];
            snprintf(range, sizeof range, "is no number from %.10g to %.10g", least, most);
            complain(path_, range);
        }
        return number;
    }

    std::optional<int> integer(int least = INT_MIN, int most = INT_MAX) const {
        const std::optional<double> value = number(least, most);
        return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
    }

    uint64_t count() const {
        if (json_ != nullptr && json_->is_number_unsigned()) {
            return json_->get<uint64_t>();
        }
        return static_cast<uint64_t>(number(0, 0x1p63).value_or(0));
    }

    /** A text as it stands, a number in decimal. */
    std::optional<std::string> text() const {
        if (json_ == nullptr) {
            return std::nullopt;
        }
        if (json_->is_string()) {
            return json_->get<std::string>();
        }
        if (json_->is_number()) {
            return json_->dump();
        }
        complain(path_, "is neither text nor number");
        return std::nullopt;
    }

    bool flag(bool fallback) const {
        if (json_ == nullptr) {
            return fallback;
        }
        if (!json_->is_boolean()) {
            complain(path_, "is neither true nor false");
            return fallback;
        }
        return json_->get<bool>();
    }

    std::optional<Mac> mac() const {
        const std::optional<std::string> words = text();
        const std::optional<Mac> mac = words ? mac_of(*words) : std::nullopt;
        if (words && !mac) {
            complain(path_, "is no MAC address");
        }
        return mac;
    }

    /** Visits the members of an object. */
    void members(const std::function<void(const std::string &, const Part &)> &visit) const {
        if (json_ != nullptr && !json_->is_object()) {
            complain(path_, "is no object");
        } else if (json_ != nullptr) {
            for (const auto &[name, value] : json_->items()) {
                visit(name, {&value, path_ + "/" + name});
            }
        }
    }

    /** Visits the elements of an array; null stands for an element left out. */
    void elements(const std::function<void(const Part &)> &visit) const {
        if (json_ != nullptr && !json_->is_array()) {
            complain(path_, "is no array");
        } else if (json_ != nullptr) {
            for (size_t i = 0; i < json_->size(); i++) {
                const Json &value = (*json_)[i];
                visit({value.is_null() ? nullptr : &value, path_ + "/" + std::to_string(i)});
            }
        }
    }

  private:
    const Json *json_;
    std::string path_;
};

/** A member's name as a number; nothing, with a line, for any other name. */
std::optional<int> number_name(const std::string &name, const Part &part) {
    int number = 0;
    const char *const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    if (name.empty() || stop != end || error != std::errc()) {
        complain(part.path(), "has no number as its name");
        return std::nullopt;
    }
    return number;
}

std::optional<std::array<uint8_t, 4>> ip_of(const std::string &text) {
    std::array<uint8_t, 4> ip{};
    return inet_pton(AF_INET, text.c_str(), ip.data()) == 1 ? std::optional(ip) : std::nullopt;
}

constexpr double packet_bytes = 1000;
constexpr double longest_uptime = 1e10; /**< some centuries */
constexpr double longest_ping_ms = 1e6;

Traffic read_traffic(const Part &part) {
    const double rate = part["rate"].number(0, 1e12).value_or(0);
    const uint64_t packets = part["packets"].count();
    return {.bytes = {.start = part["bytes"].count(), .rate = rate},
            .packets = {.start = packets, .rate = rate / packet_bytes},
            .errors = part["errors"].count(),
            .multicast = part["multicast"].count(),
            .broadcast = part["broadcast"].count()};
}

std::vector<Neighbour> read_scan(const Part &part) {
    std::vector<Neighbour> found;
    part.elements([&](const Part &entry) {
        found.push_back({.ssid = entry["ssid"].text().value_or(""),
                         .bssid = entry["bssid"].text().value_or(""),
                         .channel = entry["channel"].text().value_or("0"),
                         .signal = entry["signal"].text().value_or("0"),
                         .bandwidth = entry["bandwidth"].text().value_or("20")});
    });
    return found;
}

std::optional<Radio> read_radio(const Part &part, const Part &scan, const std::string &interface) {
    if (!part.present()) {
        return std::nullopt;
    }
    Radio radio{.interface = interface,
                .channel = part["channel"].text().value_or("0"),
                .bandwidth = part["bandwidth"].text().value_or("0"),
                .upstream = part["upstream"].text().value_or(""),
                .bit_rate = part["bit_rate"].text().value_or("0"),
                .channel_use = {},
                .scan = scan.present() ? std::optional(read_scan(scan)) : std::nullopt};
    part["channel_use"].members([&](const std::string &channel, const Part &use) {
        if (const std::optional<int> number = number_name(channel, use)) {
            radio.channel_use.emplace_back(*number, use.integer().value_or(0));
        }
    });
    return radio;
}

std::optional<Station> read_station(const std::string &name, const Part &part,
                                    const Equipment &equipment) {
    const std::optional<Mac> mac = mac_of(name);
    const int radio = radio_of_band(part["band"].integer().value_or(bands[0].code));
    const int slot = part["ssid"].integer().value_or(0);
    if (!mac || radio < 0 || slot < 0 || slot >= bands[radio].slots) {
        complain(part.path(),
                 "is no station: it needs a MAC address as its name, \"band\" 24 or "
                 "5, and an \"ssid\" of that radio");
        return std::nullopt;
    }
    if (!equipment.radios[radio]) {
        return std::nullopt;
    }
    Station station;
    station.mac = *mac;
    station.mac_text = mac_text(*mac);
    station.ip = part["ip"].text().value_or("");
    station.signal = part["signal"].text().value_or("-50");
    station.radio = radio;
    station.slot = slot;
    station.os = part["os"].integer().value_or(0);
    station.in_arp = part["in_arp"].flag(true);
    station.since = part["since"].number(-longest_uptime, longest_uptime);
    station.interface = ssid_interface(equipment.radios[radio]->interface, slot);
    station.down = read_traffic(part["down"]).bytes;
    station.up = read_traffic(part["up"]).bytes;
    return station;
}

void read_stations(const Part &part, Equipment &equipment) {
    part.members([&](const std::string &name, const Part &entry) {
        const std::optional<Station> station = read_station(name, entry, equipment);
        const size_t place = equipment.stations.size();
        if (station && equipment.station_places.emplace(station->mac, place).second) {
            equipment.stations.push_back(*station);
        } else if (station) {
            complain(entry.path(), "stands there twice");
        }
    });
}

/** Entries of its own first: they hold for a station, too. */
void read_arp(const Part &part, Equipment &equipment) {
    part.members([&](const std::string &name, const Part &entry) {
        const std::optional<Mac> mac = mac_of(name);
        const auto ip = ip_of(entry.text().value_or(""));
        if (mac && ip) {
            equipment.arp.push_back({*mac, *ip});
        } else {
            complain(entry.path(), "is no pair of a MAC address and an IPv4 address");
        }
    });
}

std::vector<Interface> read_interfaces(const Part &part) {
    std::vector<Interface> interfaces;
    part.members([&](const std::string &name, const Part &entry) {
        interfaces.push_back({.name = name,
                              .mac = entry["mac"].mac(),
                              .ip = entry["ip"].text().value_or(""),
                              .rx = read_traffic(entry["rx"]),
                              .tx = read_traffic(entry["tx"])});
    });
    return interfaces;
}

std::optional<int> speed_code(const Part &part) {
    constexpr std::array<int, 3> speeds{10, 100, 1000};
    if (!part["speed"].present()) {
        return part["speed_code"].integer();
    }
    const auto found = std::ranges::find(speeds, part["speed"].integer().value_or(0));
    if (found == speeds.end()) {
        complain(part.path() + "/speed", "is none of 10, 100 and 1000");
        return std::nullopt;
    }
    return static_cast<int>(found - speeds.begin());
}

std::optional<int> duplex_code(const Part &part) {
    const std::optional<std::string> duplex = part["duplex"].text();
    if (!duplex) {
        return part["duplex_code"].integer();
    }
    if (*duplex != "full" && *duplex != "half") {
        complain(part.path() + "/duplex", "is neither \"full\" nor \"half\"");
        return std::nullopt;
    }
    return *duplex == "full" ? 0 : 1;
}

std::vector<SwitchPort> read_ports(const Part &part) {
    std::vector<SwitchPort> ports;
    part.members([&](const std::string &name, const Part &entry) {
        const std::optional<int> number = number_name(name, entry);
        if (!number) {
            return;
        }
        ports.push_back({.number = *number,
                         .link = entry["link"].flag(false),
                         .speed = speed_code(entry),
                         .duplex = duplex_code(entry),
                         .in = read_traffic(entry["in"]),
                         .out = read_traffic(entry["out"])});
    });
    return ports;
}

Discovery read_discovery(const Part &part) {
    const std::string text = part.text().value_or("answers");
    if (text == "silent") {
        return Discovery::silent;
    }
    if (text == "absent") {
        return Discovery::absent;
    }
    if (text != "answers") {
        complain(part.path(), "is none of \"answers\", \"silent\" and \"absent\"");
    }
    return Discovery::answers;
}

std::vector<PingHost> read_ping(const Part &part) {
    std::vector<PingHost> hosts;
    part.members([&](const std::string &name, const Part &entry) {
        if (name.empty() || name.find_first_of(" \t\n") != std::string::npos) {
            complain(entry.path(), "is no host name");
            return;
        }
        PingHost host{.name = name,
                      .address = ip_of(name) ? name : entry["address"].text().value_or("192.0.2.1"),
                      .unknown = entry["unknown"].flag(false),
                      .replies = {}};
        entry["replies"].elements(
            [&](const Part &reply) { host.replies.push_back(reply.number(0, longest_ping_ms)); });
        hosts.push_back(std::move(host));
    });
    return hosts;
}

FirmwareLibrary read_firmware(const Part &part) {
    const Part verdicts = part["verdicts"];
    return {.partition_size = part["partition_size"].count(),
            .model = part["model"].text().value_or(""),
            .type = verdicts["type"].integer(),
            .valid = verdicts["valid"].integer(),
            .mtd_size = verdicts["mtd_size"].integer(),
            .crc = verdicts["crc"].integer()};
}

SystemState read_system(const Part &part) {
    return {.cpu = part["cpu"].integer().value_or(0),
            .mem = part["mem"].integer().value_or(0),
            .rom = part["rom"].integer().value_or(0),
            .version = part["version"].text().value_or("")};
}

std::vector<std::string> read_processes(const Part &part) {
    std::vector<std::string> names;
    part.elements([&](const Part &name) { names.push_back(name.text().value_or("")); });
    return names;
}

/** A log with a record that makes no sense cannot be read at all. */
std::optional<std::vector<LogRecord>> read_syslog(const Part &part) {
    std::vector<LogRecord> records;
    bool whole = part.is_array();
    part.elements([&](const Part &entry) {
        const std::optional<int> type = entry["type"].integer();
        whole = whole && (type || !entry["type"].present());
        records.push_back({.time = entry["time"].text().value_or(""),
                           .type = type.value_or(0),
                           .event = entry["event"].text().value_or("")});
    });
    return whole ? std::optional(records) : std::nullopt;
}

}  // namespace

Equipment read_equipment(const Json &description) {
    const Part all(&description, "");
    Equipment equipment;
    for (size_t i = 0; i < name_keys.size(); i++) {
        equipment.names[i] = all["names"][name_keys[i]].text().value_or("");
    }
    for (size_t i = 0; i < bands.size(); i++) {
        equipment.radios[i] = read_radio(all["radios"][bands[i].key], all["scan"][bands[i].key],
                                         equipment.names[radio_2g_name + i]);
    }
    all["bssids"].elements([&](const Part &bssid) { equipment.bssids.push_back(bssid.mac()); });
    read_stations(all["stations"], equipment);
    read_arp(all["arp"], equipment);
    equipment.interfaces = read_interfaces(all["interfaces"]);
    equipment.ports = read_ports(all["ports"]);
    equipment.topology = {.port = all["topology"]["port"].integer(),
                          .if_name = all["topology"]["if_name"].text(),
                          .data = all["topology"]["data"].text(),
                          .silent = all["topology"]["silent"].flag(false)};
    equipment.discovery = read_discovery(all["discovery"]);
    equipment.ping = read_ping(all["ping"]);
    equipment.firmware = read_firmware(all["firmware"]);
    equipment.system = read_system(all["system"]);
    equipment.memory = {.free = all["memory"]["free"].count(),
                        .freed_by_stopping = all["memory"]["freed_by_stopping"].count()};
    equipment.processes = read_processes(all["processes"]);
    equipment.syslog = read_syslog(all["syslog"]);
    equipment.wget_status = all["wget"]["status"].integer(0, 255).value_or(0);
    return equipment;
}

}  // namespace vap
