/**
 * MAC addresses and their texts.
 */
#ifndef MAC_H
#define MAC_H

#include <cstdint>

#include "nx_limits.h"

/** How a MAC is written. */
enum class MacStyle {
    lower_colons, /**< 0a:1b:... , 17 characters */
    upper_colons, /**< 0A:1B:... , 17 characters */
    lower_digits  /**< 0a1b... , 12 characters */
};

struct MacText {
    char text[limits::mac_text];
};

/** Writes 6 bytes as text. */
MacText mac_text(const uint8_t *mac, MacStyle style);

/** The MAC of the LAN interface; zeros when the platform cannot read it. */
MacText lan_mac_text(MacStyle style);

#endif
