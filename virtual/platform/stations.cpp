/* Stations, ARP table and identification: platform/wifi.h. */
#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/wifi.h"
#include "virtual/hardware/equipment.h"
#include "virtual/platform/field.h"

namespace vap {
namespace {

constexpr size_t mac_record = WIFI_MAC_LIST_SIZE / WIFI_STATIONS_MAX;
constexpr size_t arp_record = 10;

void describe(wifi_sta &record, const Station &station, double uptime) {
    record = {};
    fill(record.ifname, station.interface);
    fill(record.mac, station.mac_text);
    fill(record.ip, station.ip);
    fill(record.signal, station.signal);
    // A time of manual steps may stand a hair below the whole second.
    std::to_chars(record.online_time, std::end(record.online_time) - 1,
                  static_cast<int64_t>(uptime - station.joined + 1e-6));
    record.down_bytes = static_cast<uint32_t>(station.down.now(uptime));
    record.up_bytes = static_cast<uint32_t>(station.up.now(uptime));
}

/** Fills at most `max` of the stations that `wanted` takes; returns how many it
 *  takes in all. */
int list_stations(const EquipmentLock &equipment, wifi_sta *stations, int max, auto wanted) {
    int count = 0;
    for (const Station &station : equipment->stations) {
        if (station.present(equipment.uptime()) && wanted(station)) {
            if (count < max) {
                describe(stations[count], station, equipment.uptime());
            }
            count++;
        }
    }
    return count;
}

/** The ARP table: entries of its own, then the stations that it does not name. */
std::vector<ArpEntry> arp_table(const EquipmentLock &equipment) {
    std::vector<ArpEntry> table = equipment->arp;
    std::vector<Mac> own;
    std::ranges::transform(table, std::back_inserter(own), &ArpEntry::mac);
    std::ranges::sort(own);
    for (const Station &station : equipment->stations) {
        ArpEntry entry{.mac = station.mac};
        if (station.in_arp && station.present(equipment.uptime()) &&
            !std::ranges::binary_search(own, station.mac) &&
            inet_pton(AF_INET, station.ip.c_str(), entry.ip.data()) == 1) {
            table.push_back(entry);
        }
    }
    return table;
}

/** MAC of a kick-off text: 17 characters, then ";1". */
std::optional<Mac> kicked_mac(const char *text) {
    const std::string_view words = text == nullptr ? "" : text;
    return words.size() == 19 && words.ends_with(";1") ? mac_of(words.substr(0, 17)) : std::nullopt;
}

/** Bars a station of an SSID, or lets it in again, which makes it a new
 *  association. False: the radio or its SSID has no such station. */
bool bar(const char *text, int slot, int radio, bool barred) {
    const std::optional<Mac> mac = kicked_mac(text);
    const EquipmentLock equipment = equipment_now();
    const auto station = std::ranges::find_if(equipment->stations, [&](const Station &one) {
        return mac == one.mac && one.slot == slot && one.radio == radio &&
               (one.barred != barred && (!barred || one.present(equipment.uptime())));
    });
    if (station == equipment->stations.end()) {
        return false;
    }
    station->barred = barred;
    if (!barred) {
        station->joined = equipment.uptime();
        for (Counter *counter : {&station->down, &station->up}) {
            counter->value = 0;
            counter->at = equipment.uptime();
        }
    }
    return true;
}

int bar_call(const char *op, const char *text, int slot, int radio, bool barred) {
    const std::optional<long> fault = due_fault(op, -1);
    const long result = fault ? *fault : bar(text, slot, radio, barred) ? 0 : -1;
    record(op, {text_arg(text), slot, radio}, result);
    return static_cast<int>(result);
}

}  // namespace
}  // namespace vap

using namespace vap;

extern "C" {

int wifi_get_client_lists(wifi_sta *stations, const char *ifname, int max) {
    if (const auto fault = due_fault("wifi_get_client_lists", 0)) {
        return static_cast<int>(*fault);
    }
    if (stations != nullptr && ifname != nullptr) {
        const EquipmentLock equipment = equipment_now();
        const int radio = equipment->radio_of(ifname);
        if (radio >= 0) {
            return list_stations(equipment, stations, max,
                                 [&](const Station &one) { return one.radio == radio; });
        }
    }
    return refuse("wifi_get_client_lists", {text_arg(ifname), max}, 0);
}

int getWlClientListByIfname(int band_code, const char *ifname, wifi_sta *stations) {
    if (const auto fault = due_fault("getWlClientListByIfname", 0)) {
        return static_cast<int>(*fault);
    }
    const int radio = radio_of_band(band_code);
    if (radio >= 0 && ifname != nullptr && stations != nullptr) {
        const EquipmentLock equipment = equipment_now();
        return list_stations(equipment, stations, WIFI_STATIONS_MAX, [&](const Station &one) {
            return one.radio == radio && one.interface == ifname;
        });
    }
    return refuse("getWlClientListByIfname", {band_code, text_arg(ifname)}, 0);
}

int get_client_ip_by_mac(wifi_sta *stations, int count) {
    if (const auto fault = due_fault("get_client_ip_by_mac", -1)) {
        return static_cast<int>(*fault);
    }
    if (stations == nullptr) {
        return -1;
    }
    const std::vector<ArpEntry> table = arp_table(equipment_now());
    for (int i = 0; i < std::min(count, WIFI_STATIONS_MAX); i++) {
        const std::optional<Mac> mac =
            mac_of(std::string(stations[i].mac, strnlen(stations[i].mac, 18)));
        const auto found =
            std::ranges::find_if(table, [&](const ArpEntry &entry) { return mac == entry.mac; });
        if (found != table.end()) {
            inet_ntop(AF_INET, found->ip.data(), stations[i].ip, sizeof stations[i].ip);
        }
    }
    return 0;
}

int wifi_get_wl_mac_list(const char *ifname, void *list, int *count) {
    if (const auto fault = due_fault("wifi_get_wl_mac_list", -1)) {
        return static_cast<int>(*fault);
    }
    if (ifname != nullptr && list != nullptr && count != nullptr) {
        const EquipmentLock equipment = equipment_now();
        const int radio = equipment->radio_of(ifname);
        if (radio >= 0) {
            memset(list, 0, WIFI_MAC_LIST_SIZE);
            *count = 0;
            for (const Station &station : equipment->stations) {
                if (station.radio == radio && station.present(equipment.uptime())) {
                    if (*count < WIFI_STATIONS_MAX) {
                        memcpy(static_cast<uint8_t *>(list) + *count * mac_record,
                               station.mac.data(), station.mac.size());
                    }
                    ++*count;
                }
            }
            return 0;
        }
    }
    return refuse("wifi_get_wl_mac_list", Json::array({text_arg(ifname)}), -1);
}

int get_arp_ipmaclists(void *buffer, int size, int *count) {
    if (const auto fault = due_fault("get_arp_ipmaclists", -1)) {
        return static_cast<int>(*fault);
    }
    if (buffer == nullptr || count == nullptr || size < 0) {
        return -1;
    }
    const std::vector<ArpEntry> table = arp_table(equipment_now());
    const size_t filled = std::min(table.size(), static_cast<size_t>(size) / arp_record);
    auto *out = static_cast<uint8_t *>(buffer);
    for (size_t i = 0; i < filled; i++, out += arp_record) {
        std::ranges::copy(table[i].ip, std::ranges::copy(table[i].mac, out).out);
    }
    *count = static_cast<int>(filled);
    return 0;
}

int ap_client_identify_get_os_info(const uint8_t *mac, int *index) {
    if (const auto fault = due_fault("ap_client_identify_get_os_info", -1)) {
        return static_cast<int>(*fault);
    }
    if (mac == nullptr || index == nullptr) {
        return -1;
    }
    Mac wanted;
    std::copy_n(mac, wanted.size(), wanted.begin());
    const EquipmentLock equipment = equipment_now();
    const Station *station = equipment->station(wanted);
    if (station == nullptr) {
        return -1;  // nothing was seen of this client, so there is no guess
    }
    *index = station->os;
    return 0;
}

int sta_kickoff(const char *text, int ssid_index, int radio) {
    return bar_call("sta_kickoff", text, ssid_index, radio, true);
}

int sta_link_enable(const char *text, int ssid_index, int radio) {
    return bar_call("sta_link_enable", text, ssid_index, radio, false);
}

}  // extern "C"
