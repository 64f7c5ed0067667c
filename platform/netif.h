/**
 * Network interfaces, address texts and switch ports.
 * All calls may be made from any thread.
 */
#ifndef PLATFORM_NETIF_H
#define PLATFORM_NETIF_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Name of the LAN interface; a static text. */
const char *ifaddrs_get_lan_ifname(void);

/** MAC of an interface, 6 bytes. 0: done; otherwise `mac` is untouched. */
int ifaddrs_get_if_netmac(const char *ifname, uint8_t *mac);

/** IPv4 address of an interface as text (16 bytes). 0: done; otherwise `ip` is
 *  untouched. */
int ifaddrs_get_ifip(const char *ifname, char *ip);

/** Reads a colon-form MAC text into 6 bytes. 0: done; otherwise `mac` is
 *  untouched. */
int ifaddrs_ethaddr_aton(const char *text, uint8_t *mac);

/** Copies a MAC text with its letters in upper or lower case; everything else
 *  stays. `in` and `out` may be the same; `out` needs strlen(in) + 1 bytes. */
void string_upper_mac(const char *in, char *out);
void string_lower_mac(const char *in, char *out);

/** Counters of an interface since boot. */
typedef struct if_stats {
    uint64_t rx_bytes; /**< byte 0 */
    uint64_t rx_packets;
    uint64_t rx_errors;
    uint64_t tx_bytes; /**< byte 24 */
    uint64_t tx_packets;
    uint64_t tx_errors;
} if_stats;

static_assert(offsetof(if_stats, rx_bytes) == 0, "if_stats layout");
static_assert(offsetof(if_stats, tx_bytes) == 24, "if_stats layout");

/** Reads the counters of an interface. 0: done; otherwise `stats` is untouched. */
int sys_get_if_statistics(const char *ifname, if_stats *stats);

/** 1 when the link of a switch port is up, else 0. */
int hal_get_port_link_status(int port);

/** Link parameters of a switch port: speed code (0: 10, 1: 100, 2: 1000 Mbit/s)
 *  and duplex code (0: full, 1: half). 0: done; otherwise both are untouched. */
int hal_get_eth_status(int port, int *speed, int *duplex);

#ifdef __cplusplus
}
#endif

#endif
