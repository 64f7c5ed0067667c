#include "mac.h"

#include <cstdio>

#include "platform/netif.h"

MacText mac_text(const uint8_t *mac, MacStyle style) {
    const char *format = style == MacStyle::lower_colons   ? "%02x:%02x:%02x:%02x:%02x:%02x"
                         : style == MacStyle::upper_colons ? "%02X:%02X:%02X:%02X:%02X:%02X"
                                                           : "%02x%02x%02x%02x%02x%02x";
    MacText result;
    snprintf(result.text, sizeof result.text, format, mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    return result;
}

MacText lan_mac_text(MacStyle style) {
    uint8_t mac[6] = {};
    ifaddrs_get_if_netmac(ifaddrs_get_lan_ifname(), mac);
    return mac_text(mac, style);
}
