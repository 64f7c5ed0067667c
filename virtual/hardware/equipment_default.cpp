/* The hardware of a new device. */
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

/** Addresses of a device differ in the lowest five bits. */
constexpr int uplink_mac = 1;
constexpr int bssid_mac = 8;      /**< slots 0 to 7 */
constexpr int client_mac = 16;    /**< client interface of each radio */
constexpr int interface_mac = 24; /**< SSIDs of the second radio */

/** A locally administered address that comes from the serial number. */
Mac base_mac(const std::string &serial) {
    uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
    for (const char letter : serial) {
        hash = (hash ^ static_cast<uint8_t>(letter)) * 0x100000001b3;
    }
    Mac mac{0x02};
    for (size_t i = 1; i < mac.size(); i++) {
        mac[i] = static_cast<uint8_t>(hash >> (8 * i));
    }
    mac[5] &= 0xe0;
    return mac;
}

std::string mac_at(Mac mac, int index) {
    mac[5] = static_cast<uint8_t>(mac[5] + index);
    return mac_text(mac);
}

Json traffic(int rate) {
    return {{"bytes", 0}, {"rate", rate}};
}

Json interface(const std::string &mac, int rx_rate = 0, int tx_rate = 0) {
    return {{"mac", mac}, {"rx", traffic(rx_rate)}, {"tx", traffic(tx_rate)}};
}

Json default_interfaces(const Mac &mac) {
    Json all = Json::object();
    all["br0"] = interface(mac_at(mac, 0), 24'000, 96'000);
    all["br0"]["ip"] = "192.168.188.253";
    all["eth0"] = interface(mac_at(mac, 0), 96'000, 24'000);
    all["eth1"] = interface(mac_at(mac, uplink_mac));
    for (size_t radio = 0; radio < bands.size(); radio++) {
        const Band &band = bands[radio];
        const int first = radio == 0 ? bssid_mac : interface_mac;
        for (int slot = 0; slot < band.slots; slot++) {
            const int rate = slot == 0 ? 12'000 : 0;
            all[ssid_interface(band.interface, slot)] =
                interface(mac_at(mac, first + slot), rate, 4 * rate);
        }
        all[std::string(band.interface) + "-vxd"] =
            interface(mac_at(mac, client_mac + static_cast<int>(radio)));
    }
    return all;
}

Json neighbour(const char *ssid, const char *bssid, int channel, int signal, int bandwidth) {
    return {{"ssid", ssid},
            {"bssid", bssid},
            {"channel", channel},
            {"signal", signal},
            {"bandwidth", bandwidth}};
}

Json default_scan() {
    return {{"24", Json::array({neighbour("Harbour Cafe", "02:1c:10:00:00:01", 1, -61, 20),
                                neighbour("", "02:1c:10:00:00:02", 6, -72, 20),
                                neighbour("Reading Room", "02:1c:10:00:00:03", 11, -80, 40)})},
            {"5", Json::array({neighbour("Harbour Cafe", "02:1c:10:00:00:05", 36, -66, 80),
                               neighbour("Workshop", "02:1c:10:00:00:06", 149, -78, 40)})}};
}

Json default_radios() {
    return {{"24",
             {{"channel", 6},
              {"bandwidth", 20},
              {"upstream", ""},
              {"bit_rate", 300},
              {"channel_use", {{"1", 18}, {"6", 25}, {"11", 12}}}}},
            {"5",
             {{"channel", 36},
              {"bandwidth", 80},
              {"upstream", ""},
              {"bit_rate", 866.7},
              {"channel_use", {{"36", 8}, {"149", 5}}}}}};
}

Json default_ports() {
    return {{"1",
             {{"link", true},
              {"speed", 1000},
              {"duplex", "full"},
              {"in", traffic(96'000)},
              {"out", traffic(24'000)}}},
            {"3",
             {{"link", false},
              {"speed", 1000},
              {"duplex", "full"},
              {"in", traffic(0)},
              {"out", traffic(0)}}}};
}

Json default_syslog() {
    const Json start = {
        {"time", "2024-01-01 00:00:05"}, {"type", 1}, {"event", "System is started"}};
    return Json::array({start});
}

}  // namespace

Json default_hardware(const NewDevice &options) {
    const Mac mac = base_mac(options.serial);
    Json names = Json::object({{name_keys[lan_name], "br0"},
                               {name_keys[lan_uplink_name], "eth0"},
                               {name_keys[wan_uplink_name], "eth1"}});
    Json bssids = Json::array();
    for (const Band &band : bands) {
        names[band.name_key] = band.interface;
    }
    for (int slot = 0; slot < bands[0].slots; slot++) {
        bssids.push_back(mac_at(mac, bssid_mac + slot));
    }
    return {{"names", names},
            {"radios", default_radios()},
            {"bssids", bssids},
            {"stations", Json::object()},
            {"arp", Json::object()},
            {"scan", default_scan()},
            {"interfaces", default_interfaces(mac)},
            {"ports", default_ports()},
            {"topology", {{"port", 1}, {"if_name", "eth0"}}},
            {"discovery", "answers"},
            {"ping", {{"*", {{"address", "192.0.2.1"}, {"replies", Json::array({8.2})}}}}},
            {"firmware", {{"model", options.model}, {"partition_size", 16 << 20}}},
            {"system", {{"cpu", 8}, {"mem", 45}, {"rom", 60}, {"version", "V1.0.0.11(10862)"}}},
            {"memory", {{"free", 32 << 20}, {"freed_by_stopping", 8 << 20}}},
            {"processes", Json::array({"netctrl", "wifid", "cfm", "norvex"})},
            {"syslog", default_syslog()}};
}

}  // namespace vap
