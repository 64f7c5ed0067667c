/**
 * Start-up of the discovery and topology daemons.
 */
#ifndef TOPO_EXCHANGE_H
#define TOPO_EXCHANGE_H

/** Starts the topology exchange thread; returns at once. */
void norvex_topo_exc_start();

#endif
