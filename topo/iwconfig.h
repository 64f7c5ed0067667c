/**
 * Bit rate of a wireless interface.
 */
#ifndef TOPO_IWCONFIG_H
#define TOPO_IWCONFIG_H

/**
 * Asks the iwconfig tool for an interface's bit rate.
 * @param rate receives kilobytes a second, 1024 kbit to the Mbit; 0 when the tool
 *             shows none
 * @return 0; -1: no safe interface name (announced on standard output), or the
 *         tool cannot be started; `rate` is untouched
 */
int iwconfig_get_ifname_rate(const char *ifname, int *rate);

#endif
