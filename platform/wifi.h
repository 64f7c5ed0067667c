/**
 * Wi-Fi helper library. All calls may be made from any thread.
 *
 * A radio is named by its band code (24: 2.4 GHz, 5: 5 GHz), by its radio
 * number (0, 1), or by its main interface.
 */
#ifndef PLATFORM_WIFI_H
#define PLATFORM_WIFI_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Longest interface name, NUL included. */
#define WIFI_IFNAME_MAX 33

/** Most stations of one list. */
#define WIFI_STATIONS_MAX 128

/** One associated station. Texts are NUL-terminated. */
typedef struct wifi_sta {
    char ifname[WIFI_IFNAME_MAX]; /**< interface that it is associated with */
    char mac[18];                 /**< colon form */
    char ip[16];                  /**< IPv4, as far as the driver knows it */
    char online_time[16];         /**< seconds since the association, decimal */
    char signal[9];               /**< dBm, decimal */
    uint32_t down_bytes;          /**< sent to the station; wraps */
    uint32_t up_bytes;            /**< received from the station; wraps */
} wifi_sta;

static_assert(offsetof(wifi_sta, mac) == 33, "wifi_sta layout");
static_assert(offsetof(wifi_sta, ip) == 51, "wifi_sta layout");
static_assert(offsetof(wifi_sta, down_bytes) == 92, "wifi_sta layout");
static_assert(sizeof(wifi_sta) == 100, "wifi_sta layout");

/** Fills the stations of a radio's main interface, those of all its SSIDs, at
 *  most `max`; returns how many there are, which may exceed `max`. */
int wifi_get_client_lists(wifi_sta *stations, const char *ifname, int max);

/** Fills the stations of one SSID's interface, at most WIFI_STATIONS_MAX;
 *  returns the true number, which may be larger. */
int getWlClientListByIfname(int band_code, const char *ifname, wifi_sta *stations);

/** Fills in the IPv4 addresses of `count` stations from the ARP table. */
int get_client_ip_by_mac(wifi_sta *stations, int count);

/** Size of the list of `wifi_get_wl_mac_list`: 128 opaque records. */
#define WIFI_MAC_LIST_SIZE (128 * 166)

/** Fills `list` (WIFI_MAC_LIST_SIZE bytes, opaque) with the stations of a
 *  radio's main interface and `count` with their number. 0: done. */
int wifi_get_wl_mac_list(const char *ifname, void *list, int *count);

/** State of a radio; decimal texts. */
typedef struct wifi_radio_status {
    char bssid[18];    /**< upstream access point of a radio in client mode */
    char channel[8];   /**< current channel */
    char bandwidth[8]; /**< current channel width, MHz */
} wifi_radio_status;

/** Fills the state of a radio; `index` is ignored. 0: done; otherwise `status`
 *  is untouched. */
int wifi_get_status_list(int band_code, int index, wifi_radio_status *status);

/** One neighbouring network of a scan. */
typedef struct wifi_scan_result {
    char ssid[33]; /**< empty for a hidden network */
    char bssid[18];
    char channel[8];
    char signal[8];    /**< dBm */
    char bandwidth[8]; /**< MHz */
} wifi_scan_result;

/** Scans on a radio's main interface; fills at most `max` results and `count`
 *  with their number. 0: done. */
int wifi_do_scan(const char *ifname, int *count, wifi_scan_result *results, int max);

/** Name of the interface of one SSID into `name` (WIFI_IFNAME_MAX bytes).
 *  `mode` is the radio's operating mode ("ap", "apclient"). 0: done; otherwise
 *  `name` is untouched. */
int get_wifi_ifname(int band_code, const char *mode, int index, char *name);

/** Interfaces of `get_eth_name`. */
enum {
    ETH_NAME_LAN_UPLINK = 6,
    ETH_NAME_WAN_UPLINK = 10,
    ETH_NAME_RADIO_2G = 23,
    ETH_NAME_RADIO_5G = 27
};

/** Name of a fixed interface; a static text, "" for an unknown index. */
const char *get_eth_name(int index);

/** ARP table: entries of 10 bytes, 6 bytes MAC and 4 bytes IPv4 address, first
 *  byte first, as many as fit into `size` bytes; `count` receives their number.
 *  0: done. */
int get_arp_ipmaclists(void *buffer, int size, int *count);

/** Guess of a client's operating system: `index` receives 0 to 13. 0: done. */
int ap_client_identify_get_os_info(const uint8_t *mac, int *index);

/** Throws a station off an SSID and bars it. `text` is the MAC followed by ";1",
 *  at most 19 characters. -1: failure. */
int sta_kickoff(const char *text, int ssid_index, int radio);

/** Re-admits a station that was barred. */
int sta_link_enable(const char *text, int ssid_index, int radio);

#ifdef __cplusplus
}
#endif

#endif
