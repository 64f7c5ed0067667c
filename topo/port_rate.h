/**
 * Traffic of the wired ports, from the counters of the switch.
 */
#ifndef TOPO_PORT_RATE_H
#define TOPO_PORT_RATE_H

#include <cstdint>

/** Rates in kbit/s, see `kbit_per_second`. */
struct PortRate {
    uint64_t tx = 0;
    uint64_t rx = 0;
};

/** Counters of one switch port since boot. */
struct PortCounters {
    uint64_t in_octets = 0;
    uint64_t out_octets = 0;
    uint64_t in_unicast = 0;
    uint64_t out_unicast = 0;
};

/**
 * Rates of a wired port since the call before. One time is kept for all ports: of
 * two ports asked in a row the second is measured over less than a second, and
 * shows all its bytes since its own last call as those of one second. Meaningful
 * only with one caller at a time; any thread.
 * @param index 0: switch port 1; 1: switch port 3
 * @return 0; -1: no counters, `rate` untouched
 */
int get_port_rate(int index, PortRate &rate);

/** Has the switch show the counters of a port (`index` as above) and reads them.
 *  0; -1: they cannot be read. */
int sys_get_if_statistics_topo(int index, PortCounters &counters);

/** Reads the counters that a file shows; one without a line stays as it is. 0; -1:
 *  the file cannot be opened. */
int serch_if_statistic_by_file_topo(const char *path, PortCounters &counters);

#endif
