/**
 * Local discovery.
 */
#ifndef TOPO_DISCOVERY_H
#define TOPO_DISCOVERY_H

#include <cstddef>

/** Asks the discovery service of the device to run; waits at most 1 second for
 *  it. Always 1. */
int active_autodiscover();

/** Looks a wired station up by its MAC (any case) in the station file. Without a
 *  match both outputs hold the values of the file's last line. */
void wirestation_lookup(const char *mac, char *text, size_t text_size, int *number);

#endif
