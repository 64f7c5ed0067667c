/**
 * The wlan family of commands.
 */
#ifndef WIRELESS_WIRELESS_API_H
#define WIRELESS_WIRELESS_API_H

/** Registers the family with the cloud library. 0, or -1. */
int wireless_api();

#endif
