#include "ops/stations.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "band.h"
#include "heap.h"
#include "platform/netif.h"
#include "platform/wifi.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr unsigned release_seconds = 5;

/** True when the station is associated with one SSID of a radio. */
bool ssid_has_station(const Band &band, const char *mode, int slot, const char *mac) {
    char ifname[WIFI_IFNAME_MAX] = {};
    wifi_sta stations[WIFI_STATIONS_MAX] = {};
    get_wifi_ifname(band.code, mode, slot, ifname);
    const int count = getWlClientListByIfname(band.code, ifname, stations);
    if (count > WIFI_STATIONS_MAX) {
        return false;
    }
    get_client_ip_by_mac(stations, count);
    for (int i = 0; i < count; ++i) {
        char upper[sizeof stations[i].mac];
        string_upper_mac(stations[i].mac, upper);
        if (strcmp(upper, mac) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

int find_ssidindex_radio(const char *mac, int *ssid_index, int *radio) {
    for (const Band &band : bands) {
        if (!radio_enabled(band)) {
            continue;
        }
        const StoreValue mode = store_get(radio_key(band, "mode").text);
        for (int slot = 0; slot < band.slots; ++slot) {
            if (ssid_has_station(band, mode.text, slot, mac)) {
                *radio = band.number;
                *ssid_index = slot;
                NX_TRACE("find this station ,radio = %d,index = %d\n", *radio, *ssid_index);
                return 0;
            }
        }
    }
    return -1;
}

void readmit_stations(const ReleaseBlock &block) {
    for (int i = 0; i < block.front().count; ++i) {
        sta_link_enable(block[i].text, block[i].ssid_index, block[i].radio);
    }
}

void *release_clients_from_blacklist(void *argument) {
    const Heap<ReleaseBlock> block(static_cast<ReleaseBlock *>(argument));
    sleep(release_seconds);
    readmit_stations(*block);
    return nullptr;
}

int getmacFilterMaclists(const char *prefix, char *text, size_t size) {
    Key key;
    snprintf(key.text, sizeof key.text, "%smaclist_num", prefix);
    const int count = store_int(key.text);
    size_t used = strlen(text);
    for (int i = 1; i <= count; ++i) {
        snprintf(key.text, sizeof key.text, "%smaclist%d", prefix, i);
        const StoreValue entry = store_get(key.text);
        const size_t length = strlen(entry.text) + 1;
        if (used + length >= size) {
            break;
        }
        snprintf(text + used, size - used, "%s\n", entry.text);
        used += length;
    }
    return count;
}
