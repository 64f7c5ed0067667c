#include <cstdio>
#include <memory>
#include <set>

#include "tools/cli.h"
#include "tools/vap_commands.h"
#include "virtual/folder/hardware.h"
#include "virtual/hardware/equipment.h"

namespace {

using vap::Json;
using vap::Mac;

struct StationArguments {
    std::string folder, mac, ip;
    std::vector<std::string> macs;
    int band = 24, ssid = 0, signal = -50, os = 1;
    double down_rate = 0, up_rate = 0;
};

/** The description of a device, whether or not an agent runs on it. */
vap::Hardware open_hardware(const std::string &folder) {
    return vap::Hardware(std::filesystem::path(folder) / "hardware.json");
}

Json stations_of(vap::Hardware &hardware) {
    Json stations = hardware.at("/stations");
    if (stations.is_null()) {
        return Json::object();
    }
    if (!stations.is_object()) {
        throw tools::Failure("\"stations\" of hardware.json is no object");
    }
    return stations;
}

/** Name under which a station stands there; "" for an unknown one. */
std::string name_of(const Json &stations, const Mac &mac) {
    for (const auto &[name, station] : stations.items()) {
        if (vap::mac_of(name) == mac) {
            return name;
        }
    }
    return "";
}

Mac need_mac(const std::string &text) {
    const std::optional<Mac> mac = vap::mac_of(text);
    if (!mac) {
        throw tools::Failure(text + " is no MAC address such as 02:57:00:00:00:01");
    }
    return *mac;
}

/** The first address of our own that no station has. */
Mac free_mac(const Json &stations) {
    for (int number = 1; number < 1 << 16; number++) {
        const Mac mac{
            0x02, 0x57, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
        if (name_of(stations, mac).empty()) {
            return mac;
        }
    }
    throw tools::Failure("no MAC address is left");
}

/** The first address of the device's network, from .100 on, that no station has. */
std::string free_ip(const Json &stations) {
    std::set<std::string> taken;
    for (const Json &station : stations) {
        taken.insert(station.value("ip", ""));
    }
    for (int host = 100; host < 250; host++) {
        const std::string ip = "192.168.188." + std::to_string(host);
        if (!taken.contains(ip)) {
            return ip;
        }
    }
    return "";
}

void add(const StationArguments &given) {
    vap::Hardware hardware = open_hardware(given.folder);
    const Json stations = stations_of(hardware);
    const Mac mac = given.mac.empty() ? free_mac(stations) : need_mac(given.mac);
    const int radio = vap::radio_of_band(given.band);
    if (!name_of(stations, mac).empty()) {
        throw tools::Failure(vap::mac_text(mac) + " is there already");
    }
    if (given.ssid < 0 || given.ssid >= vap::bands[radio].slots) {
        throw tools::Failure("band " + std::to_string(given.band) + " has SSIDs 0 to " +
                             std::to_string(vap::bands[radio].slots - 1));
    }
    Json station = {{"band", given.band},
                    {"ssid", given.ssid},
                    {"ip", given.ip.empty() ? free_ip(stations) : given.ip},
                    {"signal", given.signal},
                    {"os", given.os}};
    station["down"] = {{"bytes", 0}, {"rate", given.down_rate}};
    station["up"] = {{"bytes", 0}, {"rate", given.up_rate}};
    Json change;
    change["stations"][vap::mac_text(mac)] = station;
    hardware.patch(change);
    printf("%s\n", vap::mac_text(mac).c_str());
}

void remove(const StationArguments &given) {
    vap::Hardware hardware = open_hardware(given.folder);
    const Json stations = stations_of(hardware);
    Json change;
    for (const std::string &text : given.macs) {
        const std::string name = name_of(stations, need_mac(text));
        if (name.empty()) {
            throw tools::Failure(text + " is no station of this device");
        }
        change["stations"][name] = nullptr;
    }
    hardware.patch(change);
}

/** The stations that are there, for the shell. */
std::vector<std::string> macs_of(const StationArguments &given) {
    vap::Hardware hardware = open_hardware(given.folder);
    const Json stations = stations_of(hardware);
    std::vector<std::string> macs;
    for (const auto &[mac, station] : stations.items()) {
        macs.push_back(mac);
    }
    return macs;
}

void list(const StationArguments &given) {
    vap::Hardware hardware = open_hardware(given.folder);
    const Json stations = stations_of(hardware);
    for (const auto &[mac, station] : stations.items()) {
        const auto text = [&station = station](const char *key) {
            const Json value = station.is_object() ? station.value(key, Json()) : Json();
            return value.is_string() ? value.get<std::string>()
                   : value.is_null() ? "-"
                                     : value.dump();
        };
        printf("%-17s  band %-2s  ssid %s  %-15s  %s dBm\n", mac.c_str(), text("band").c_str(),
               text("ssid").c_str(), text("ip").c_str(), text("signal").c_str());
    }
}

}  // namespace

void add_station_command(CLI::App &app) {
    CLI::App *station =
        app.add_subcommand("station", "Wi-Fi clients of a device, also while the agent runs on it");
    station->require_subcommand(1);
    station->footer(
        "Examples:\n"
        "  vap station add ap1\n"
        "  vap station add ap1 02:57:00:00:00:07 --band 5 --ssid 1 --down-rate 250000\n"
        "  vap station remove ap1 02:57:00:00:00:07");
    const auto given = std::make_shared<StationArguments>();
    const auto command = [&](const char *name, const char *text,
                             void (*run)(const StationArguments &)) {
        CLI::App *one = station->add_subcommand(name, text);
        one->add_option("DIR", given->folder, "Folder of the device")->required();
        one->callback([given, run] { run(*given); });
        return one;
    };
    CLI::App *adding = command("add", "Adds one and prints its MAC address", add);
    adding->add_option("MAC", given->mac, "MAC address; the next free one without it");
    adding->add_option("--band", given->band, "24 or 5")
        ->check(CLI::IsMember({24, 5}))
        ->capture_default_str();
    adding->add_option("--ssid", given->ssid, "SSID slot")->capture_default_str();
    adding->add_option("--ip", given->ip, "IPv4 address; the next free one without it")
        ->check(CLI::ValidIPV4);
    adding->add_option("--signal", given->signal, "dBm")->capture_default_str();
    adding->add_option("--os", given->os, "Index of its operating system")
        ->check(CLI::Range(0, 13))
        ->capture_default_str();
    adding->add_option("--down-rate", given->down_rate, "Bytes a second to the station")
        ->check(tools::number(0, 1e12));
    adding->add_option("--up-rate", given->up_rate, "Bytes a second from the station")
        ->check(tools::number(0, 1e12));
    CLI::App *removing = command("remove", "Removes stations", remove);
    tools::offer(removing->add_option("MAC", given->macs, "MAC addresses")->required(),
                 [given] { return macs_of(*given); });
    command("list", "Lists the stations that hardware.json shows", list);
}
