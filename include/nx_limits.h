/**
 * The agent's limits, each with its unit.
 */
#ifndef NX_LIMITS_H
#define NX_LIMITS_H

#include <cstddef>

namespace limits {

/** Watched descriptors, the control socket among them. */
constexpr size_t poll_items = 1024;

/** Bytes of one key of the configuration store, its NUL counted. */
constexpr size_t key_text = 96;

/** Records of the list of previous stations. */
constexpr size_t stations = 128;

/** Pairs of the converted ARP table. */
constexpr size_t arp_pairs = 512;

/** Elements of one array of SSIDs that are applied; a radio has at most 8 SSIDs. */
constexpr size_t ssid_elements = 1024;

/** Radio rules of one request that are applied. A device has two radios; each rule
 *  costs a commit and a Wi-Fi restart. */
constexpr size_t radio_rules = 64;

/** Bytes of one line of the small state files in /etc, /tmp and /proc. */
constexpr size_t line = 1024;

/** Bytes of a colon-form MAC text and of an IPv4 text, NUL counted. */
constexpr size_t mac_text = 18;
constexpr size_t ip_text = 16;

/** Seconds between two beats of alarms and system log. */
constexpr unsigned beat_seconds = 15;

/** Seconds from start-up until the image directory is handed over. */
constexpr unsigned image_path_delay_seconds = 15;

/** Seconds from a radio optimisation until its result is reported. */
constexpr unsigned radio_opt_seconds = 40;

}  // namespace limits

#endif
