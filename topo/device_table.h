/**
 * The database's table of all devices of the site.
 */
#ifndef TOPO_DEVICE_TABLE_H
#define TOPO_DEVICE_TABLE_H

/** Opens table "alldevs" of database "default", whose columns are the fields of
 *  the neighbour file; its saving is delayed from the first opening on. The
 *  table's handle; null when the database refuses. Any thread. */
void *alldevs_open();

#endif
