#include "report/clients.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "band.h"
#include "json.h"
#include "mac.h"
#include "platform/netif.h"
#include "platform/systool.h"
#include "platform/wifi.h"
#include "report/decimal.h"
#include "report/os_type.h"
#include "store.h"
#include "topo/discovery.h"
#include "trace.h"

namespace {

using Stations = std::array<wifi_sta, WIFI_STATIONS_MAX>;

/* ---- walk over the stations -------------------------------------------- */

/** An enabled SSID whose radio has stations. */
struct ClientSlot {
    const Band &band;
    int slot;
    const char *ifname;
    std::span<wifi_sta> stations; /**< of the whole radio */

    bool reports(const wifi_sta &station) const {
        return strcmp(station.ifname, ifname) == 0 && text_int(station.online_time) != 0;
    }
};

/** Calls `visit` for each enabled SSID of each enabled radio that has stations,
 *  until it returns false. False when it did. */
template <typename Visit>
bool walk_slots(Visit visit) {
    for (const Band &band : bands) {
        Stations stations{};
        const int count =
            wifi_get_client_lists(stations.data(), get_eth_name(band.eth_index), WIFI_STATIONS_MAX);
        if (!radio_enabled(band) || count < 1 || count > WIFI_STATIONS_MAX) {
            continue;
        }
        const StoreValue mode = store_get(radio_key(band, "mode").text);
        for (int slot = 0; slot < band.slots; ++slot) {
            if (store_int(ssid_key(band, slot, "enable").text) == 0) {
                continue;
            }
            char ifname[WIFI_IFNAME_MAX] = {};
            get_wifi_ifname(band.code, mode.text, slot, ifname);
            if (!visit(ClientSlot{band, slot, ifname,
                                  std::span(stations).first(static_cast<size_t>(count))})) {
                return false;
            }
        }
    }
    return true;
}

/* ---- ARP table --------------------------------------------------------- */

constexpr int arp_buffer_size = 17442;
constexpr int arp_entry_size = 10;

uint64_t mac_number(const uint8_t *mac) {
    uint64_t number = 0;
    for (int i = 0; i < 6; ++i) {
        number = number << 8 | mac[i];
    }
    return number;
}

/** The ARP table by MAC. Of several entries with one MAC the first holds. */
class ArpTable {
  public:
    /** Null buffer: out of memory. */
    ArpTable() : buffer_(static_cast<char *>(cJSON_malloc(arp_buffer_size))) {
        if (!buffer_) {
            return;
        }
        int count = 0;
        get_arp_ipmaclists(buffer_.get(), arp_buffer_size, &count);
        count_ = static_cast<size_t>(std::clamp<int>(count, 0, limits::arp_pairs));
        for (size_t i = 0; i < count_; ++i) {
            order_[i] = mac_number(entry(i)) << 16 | i;
        }
        std::sort(order_.begin(), order_.begin() + count_);
    }

    explicit operator bool() const { return buffer_ != nullptr; }

    /** The 4 address bytes of a MAC; null when it is not there. */
    const uint8_t *find(const uint8_t *mac) const {
        const uint64_t wanted = mac_number(mac);
        const auto end = order_.begin() + count_;
        const auto found = std::lower_bound(order_.begin(), end, wanted << 16);
        return found != end && *found >> 16 == wanted ? entry(*found & 0xffff) + 6 : nullptr;
    }

  private:
    const uint8_t *entry(size_t i) const {
        return reinterpret_cast<const uint8_t *>(buffer_.get()) + i * arp_entry_size;
    }

    JsonText buffer_;
    size_t count_ = 0;
    std::array<uint64_t, limits::arp_pairs> order_;  // MAC, then position, in 48 and 16 bits
};

static_assert(limits::arp_pairs * arp_entry_size <= arp_buffer_size);

void update_ip(wifi_sta &station, const uint8_t *mac, const ArpTable &arp) {
    const uint8_t *ip = arp.find(mac);
    if (ip == nullptr) {
        return;
    }
    char *end = station.ip;
    for (int i = 0; i < 4; ++i) {
        end = std::to_chars(end, std::end(station.ip), ip[i]).ptr;
        *end++ = i < 3 ? '.' : '\0';
    }
}

/* ---- stations of the call before --------------------------------------- */

/** The part of a station's MAC text that tells it from most others. */
uint64_t mac_tail(const wifi_sta &station) {
    uint64_t tail;
    memcpy(&tail, station.mac + 9, sizeof tail);
    return tail;
}

/** What `user_list_get` remembers between two calls, main thread only. A call
 *  rebuilds the list while it still searches it. */
struct Snapshot {
    int32_t uptime;
    size_t count;
    std::array<uint64_t, limits::stations> tails; /**< apart, to be looked through quickly */
    std::array<wifi_sta, limits::stations> stations;

    /** First of the stations of the call before that is this one at this address, as
     *  the list stands now. */
    const wifi_sta *find(const wifi_sta &station) const {
        const uint64_t tail = mac_tail(station);
        for (size_t i = 0; i < count; ++i) {
            if (tails[i] == tail && strcmp(stations[i].ip, station.ip) == 0 &&
                strcmp(stations[i].mac, station.mac) == 0) {
                return &stations[i];
            }
        }
        return nullptr;
    }

    /** Puts a radio's stations behind the `stored` ones of this call, as many as
     *  there is room for. */
    size_t append(std::span<const wifi_sta> radio, size_t stored) {
        const size_t room = std::min(radio.size(), stations.size() - stored);
        for (const wifi_sta &station : radio.first(room)) {
            tails[stored] = mac_tail(station);
            stations[stored++] = station;
        }
        return stored;
    }
};

Snapshot snapshot{};

/* ---- one client -------------------------------------------------------- */

/** kbit/s over an interval, in single precision. */
float rate(uint32_t bytes, int32_t seconds) {
    return static_cast<float>(bytes) / static_cast<float>(seconds) / 1024.0F * 8.0F;
}

struct Rates {
    float up;
    float down;
};

/** Since the call before when the station was there all the time, otherwise over
 *  its whole association. */
Rates station_rates(const wifi_sta &station, int32_t elapsed) {
    const int online = text_int(station.online_time);
    if (snapshot.count >= 1 && elapsed > 0 && elapsed <= online) {
        if (const wifi_sta *before = snapshot.find(station)) {
            return {rate(station.up_bytes - before->up_bytes, elapsed),
                    rate(station.down_bytes - before->down_bytes, elapsed)};
        }
    }
    return {rate(station.up_bytes, online), rate(station.down_bytes, online)};
}

/** Class of a station's operating system; the first name stands for no guess. */
int station_os_class(const uint8_t *mac) {
    int index = 0;
    ap_client_identify_get_os_info(mac, &index);
    const bool known = index >= 0 && static_cast<size_t>(index) < os_classes.size();
    return os_classes[known ? static_cast<size_t>(index) : 0];
}

/** What all clients of one call share. */
struct ClientReport {
    MacText ap_mac = lan_mac_text(MacStyle::lower_colons);
    ArpTable arp;
    int32_t elapsed = 0; /**< seconds since the call before */
    bool identify_os = store_int("wl.identifyOS_en") != 0;
};

bool append_client(cJSON *array, const ClientReport &report, const ClientSlot &slot,
                   const char *ssid, wifi_sta &station) {
    cJSON *client = json_made(json_append(array, json_object()), "user_list_get");
    if (client == nullptr) {
        return false;
    }
    uint8_t mac[6] = {};
    char upper_mac[limits::mac_text];
    if (ifaddrs_ethaddr_aton(station.mac, mac) == 0) {
        update_ip(station, mac, report.arp);
    }
    string_upper_mac(station.mac, upper_mac);
    const Rates rates = station_rates(station, report.elapsed);
    json_add_string(client, "assoc_ssid", ssid);
    json_add_string(client, "user_mac", upper_mac);
    json_add_string(client, "ip", station.ip);
    json_add_string(client, "ap_mac", report.ap_mac.text);
    json_add_decimal(client, "up_flow", station.up_bytes / 1024.0);
    json_add_decimal(client, "down_flow", station.down_bytes / 1024.0);
    json_add_decimal(client, "up_rate", rates.up);
    json_add_decimal(client, "down_rate", rates.down);
    json_add_number(client, "access_type", slot.band.number);
    json_add_number(client, "os_type", report.identify_os ? station_os_class(mac) : os_classes[0]);
    json_add_string(client, "online_time", station.online_time);
    json_add_number(client, "signal_intensity", text_int(station.signal));
    return true;
}

bool append_slot(cJSON *array, const ClientReport &report, const ClientSlot &slot) {
    const StoreValue ssid = store_get(ssid_key(slot.band, slot.slot, "ssid").text);
    for (wifi_sta &station : slot.stations) {
        if (slot.reports(station) && !append_client(array, report, slot, ssid.text, station)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int user_list_get(cJSON *array) {
    const auto uptime = static_cast<int32_t>(system_get_uptime());
    const int32_t elapsed = uptime - snapshot.uptime;
    snapshot.uptime = uptime;
    active_autodiscover();
    ClientReport report;
    if (!report.arp) {
        return printf("%s,%d:malloc fail!\n", __func__, __LINE__);
    }
    report.elapsed = elapsed;
    size_t stored = 0;
    const bool whole = walk_slots([&](const ClientSlot &slot) {
        if (!append_slot(array, report, slot)) {
            return false;
        }
        // Each SSID stores all stations of its radio again.
        stored = snapshot.append(slot.stations, stored);
        return true;
    });
    if (!whole) {
        return -1;
    }
    snapshot.count = stored;
    return 0;
}

int simple_user_list_get(cJSON *array) {
    active_autodiscover();
    const bool whole = walk_slots([&](const ClientSlot &slot) {
        for (const wifi_sta &station : slot.stations) {
            if (!slot.reports(station)) {
                continue;
            }
            cJSON *client = json_made(json_append(array, json_object()), "simple_user_list_get");
            if (client == nullptr) {
                return false;
            }
            char upper_mac[limits::mac_text];
            string_upper_mac(station.mac, upper_mac);
            json_add_string(client, "mac", upper_mac);
            json_add_number(client, "access_type", slot.band.number);
        }
        return true;
    });
    return whole ? 0 : -1;
}
