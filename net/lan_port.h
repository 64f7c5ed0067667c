/**
 * Links of the wired ports. Any thread.
 */
#ifndef NET_LAN_PORT_H
#define NET_LAN_PORT_H

#include <cjson/cJSON.h>

/** Link of a switch port: `speed` in Mbit/s and `duplex` (1: half, 2: full), which
 *  keep their values as far as the switch does not tell. Nonzero: the link is up. */
int get_lan_port_status(int port, int *speed, int *duplex);

/** Switch port of a wired port (0 or 1); 0, with a line on standard output, for any
 *  other index. */
int get_lan_port_id_by_index(int index);

/** Speeds of the two wired ports in Mbit/s, 0 while a link is down. Always 0. */
int get_lan_port(int *speed_a, int *speed_b);

/** Record of the diagnosis: is one of the wired ports linked at the model's full
 *  speed? 0: yes; 1: no. */
int check_eth0_throughput(cJSON *results);

#endif
