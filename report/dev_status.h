/**
 * Identity and running state of the device. Main thread only: two of the builders
 * share the moment of the last status sample.
 */
#ifndef REPORT_DEV_STATUS_H
#define REPORT_DEV_STATUS_H

#include <cjson/cJSON.h>

/** The neighbour towards the network, as link-layer discovery has found it. */
struct front_dev {
    char ip[16];
    char mac[18];
    char port[8]; /**< its port; "lan" when it did not tell */
    char sn[40];
};

/** Adds who the device is: model, versions, addresses. Always 0. */
int dev_info_get(cJSON *object);

/** Writes the address that a DHCP server gave (at least 18 bytes), from the first
 *  line of "/etc/lan.ini": "0.0.0.0" when that is no address, untouched when there
 *  is no file. Always 0. */
int get_dhcp_ip(char *ip);

/** Adds use of processor and memory, run time, front device, rates of the wired
 *  uplink and the number of stations. Always 0. */
int run_status_get(cJSON *object);

/** Fills the record from "/etc/lldpd.write". Always 0. */
int get_front_devInfo(front_dev *device);

/** Adds the front device's texts. Always 0. */
int front_dev_get(cJSON *object);

/** Adds "rf_rule", the radio rules. Always 0. */
int ap_status_get(cJSON *object);

#endif
