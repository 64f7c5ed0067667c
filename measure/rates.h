/**
 * Rates since the call before. What a sampler remembers is shared by all threads
 * without a lock: two callers at once measure from one another's samples. The first
 * sample measures since boot.
 */
#ifndef MEASURE_RATES_H
#define MEASURE_RATES_H

#include <cstdint>

/** Rates of a radio's SSIDs in Mbit/s; `band` 24: 2.4 GHz, any other: 5 GHz. Always
 *  0; the outputs keep their values while the radio is off. */
int get_wireless_cur_rate(int band, float *tx, float *rx);

/** Rates of the wired uplink in kbit/s (of 1024 bytes to the kilobyte). Always 0. */
int get_eth0_cur_rate(uint64_t *tx_rate, uint64_t *rx_rate);

#endif
