/**
 * What a download of SSIDs means for the VLANs of the device.
 */
#ifndef WIRELESS_VLAN_DECISION_H
#define WIRELESS_VLAN_DECISION_H

#include "wireless/ssid_apply.h"

/** Switches the VLAN modes of SSIDs and switch as the SSIDs of a download need
 *  them, and restarts the device when a mode or an SSID's VLAN changed. */
void decide_vlan(const SsidRun &run);

#endif
