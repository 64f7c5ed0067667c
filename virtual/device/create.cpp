/**
 * New device folders: factory values, default configuration, default hardware.
 */
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>

#include "virtual/device/machine.h"

namespace vap {
namespace {

/** Letters and digits of a serial number. */
constexpr std::string_view serial_letters = "0123456789ABCDEFGHJKLMNPQRSTUVWXYZ";

std::string random_serial() {
    std::random_device chance;
    std::string serial = "K";
    while (serial.size() < 13) {
        serial += serial_letters[chance() % serial_letters.size()];
    }
    return serial;
}

bool valid_serial(const std::string &serial) {
    return !serial.empty() && serial.size() <= 32 && std::ranges::all_of(serial, [](char c) {
        return isalnum(static_cast<unsigned char>(c)) || c == '-';
    });
}

struct Row {
    const char *key;
    const char *value;
};

constexpr Row system_defaults[] = {
    {"lan.dns1", "192.168.188.1"},
    {"lan.gw", "192.168.188.1"},
    {"lan.ip", "192.168.188.253"},
    {"lan.mask", "255.255.255.0"},
    {"lan.type", "1"},
    {"sys.hwver", "V1.0"},
    {"sys.led.status", "0"},
    {"sys.region_index", "38"},
    {"sys.schedulereboot.enable", "0"},
    {"sys.schedulereboot.interval", "1440"},
    {"sys.schedulereboot.start_time", "3:00"},
    {"sys.schedulereboot.type", "0"},
    {"sys.schedulereboot.wday", "0000000"},
    {"sys.targets", "ap"},
    {"sys.timesyn", "0"},
    {"sys.timezone", "20"},
    {"wl.0.vlan.enable", "0"},
    {"wl.identifyOS_en", "0"},
};

void add(Values &values, std::string_view stem, std::initializer_list<Row> rows) {
    for (const Row &row : rows) {
        values.insert_or_assign(std::string(stem) + row.key, row.value);
    }
}

void add_radio(Values &values, const std::string &prefix, const char *channel,
               const char *bandwidth) {
    add(values, prefix,
        {{"enable", "1"},
         {"mode", "ap"},
         {"channel", channel},
         {"bandwidth", bandwidth},
         {"country_code", "CN"},
         {"current_power", "20"},
         {"web_max_power", "30"},  // bounds of the power that the cloud may set
         {"min_power", "5"},
         {"rssi_max", "-90"}});
}

void add_ssids(Values &values, const std::string &stem, int count, const char *name) {
    for (int slot = 0; slot < count; ++slot) {
        const std::string prefix = stem + std::to_string(slot) + ".";
        const std::string number = slot == 0 ? "" : "_" + std::to_string(slot);
        values[prefix + "ssid"] = name + number;
        add(values, prefix,
            {{"enable", slot == 0 ? "1" : "0"},
             {"hide", "0"},
             {"security", slot == 0 ? "wpapsk" : "none"},
             {"wpapsk_type", "psk2"},
             {"wpapsk_crypto", "aes"},
             {"wpapsk_psk", slot == 0 ? "12345678" : ""},
             {"key_uptime", "3600"},
             {"bss_maxassoc", "64"},
             {"type", "0"},
             {"guest_enable", "0"},
             {"sta_isolate", "0"},
             {"vlanid", "1000"}});
    }
}

void write_new(const std::filesystem::path &file, const std::string &text) {
    if (!replace_file(file, text)) {
        throw std::runtime_error("cannot write " + file.string() + ": " + strerror(errno));
    }
}

}  // namespace

Values default_configuration(const std::string &model) {
    Values values;
    for (const Row &row : system_defaults) {
        values[row.key] = row.value;
    }
    values["ap.apname"] = model + "V1.0";
    add_radio(values, "wl2g.public.", "6", "20");
    add_radio(values, "wl5g.public.", "36", "80");
    add_ssids(values, "wl2g.ssid", 8, "KALDEN");
    add_ssids(values, "wl5g.ssid", 4, "KALDEN_5G");
    return values;
}

void create_device(const std::filesystem::path &folder, const NewDevice &options) {
    const Inside inside;
    NewDevice device = options;
    if (device.serial.empty()) {
        device.serial = random_serial();
    }
    if (!valid_serial(device.serial)) {
        throw std::runtime_error("a serial number has 1 to 32 letters, digits or \"-\": " +
                                 device.serial);
    }
    if (device.model.empty() || !valid_value(device.model + "V1.0")) {
        throw std::runtime_error("not a model name: " + device.model);
    }
    std::error_code error;
    if (std::filesystem::exists(folder, error) && !std::filesystem::is_empty(folder, error)) {
        throw std::runtime_error(folder.string() + " is there already and not empty");
    }
    std::filesystem::create_directories(std::filesystem::absolute(folder).parent_path(), error);
    for (const char *part : {"bin", "root/etc/nxapi", "root/tmp", "root/var", "root/proc"}) {
        if (!make_folders(folder / part)) {
            throw std::runtime_error("cannot create " + (folder / part).string() + ": " +
                                     strerror(errno));
        }
    }
    std::filesystem::permissions(folder, std::filesystem::perms(private_folder), error);
    write_new(folder / "factory",
              print_values({{"ZQ_ATE_SN", device.serial}, {"ZQ_ATE_MODEL", device.model}}));
    write_new(folder / "config", print_values(default_configuration(device.model)));
    write_new(folder / "hardware.json", default_hardware(device).dump(2) + "\n");
    write_new(folder / "journal.jsonl", "");
}

}  // namespace vap
