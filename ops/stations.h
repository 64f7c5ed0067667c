/**
 * Stations: finding one, letting barred ones back in, and the MAC filter list.
 */
#ifndef OPS_STATIONS_H
#define OPS_STATIONS_H

#include <array>
#include <cstddef>
#include <cstdint>

/** Stations that one command may throw out. */
constexpr size_t release_records = 128;

/** A station that was thrown out and waits to be let in again. */
struct ReleaseRecord {
    char text[20];      /**< MAC and ";1", as the Wi-Fi helper library takes it */
    int32_t ssid_index; /**< SSID slot */
    int32_t radio;      /**< 0: 2.4 GHz, 1: 5 GHz */
    int32_t count;      /**< first record only: records in use */
};

/** What a kick-off hands to its thread; made with `heap_record`. */
using ReleaseBlock = std::array<ReleaseRecord, release_records>;

static_assert(sizeof(ReleaseRecord) == 32);
static_assert(sizeof(ReleaseBlock) == 4096);

/**
 * Finds the SSID that a station is associated with, radio 0 first, on the radios
 * that are switched on. The list of an SSID with 129 or more stations is not
 * searched.
 *
 * @param mac  six upper-case pairs joined by ":", compared exactly
 * @return 0: found; -1: not found, both outputs untouched
 */
int find_ssidindex_radio(const char *mac, int *ssid_index, int *radio);

/** Lets the stations of a block in again. */
void readmit_stations(const ReleaseBlock &block);

/** Thread body: waits 5 seconds, then does the same with its block and frees it. */
void *release_clients_from_blacklist(void *block);

/**
 * Appends the MAC filter list of an SSID to a text, one line an entry, as far as
 * whole lines fit.
 *
 * @param prefix  key prefix of the SSID, for example "wl2g.ssid0."
 * @param text    NUL-terminated text in a field of `size` bytes
 * @return the number of entries that the list should have ("maclist_num")
 */
int getmacFilterMaclists(const char *prefix, char *text, size_t size);

#endif
