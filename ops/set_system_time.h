/**
 * Setting the device's clock.
 */
#ifndef OPS_SET_SYSTEM_TIME_H
#define OPS_SET_SYSTEM_TIME_H

#include <ctime>

/** Sets the clock, unless `seconds` since the epoch is below 11, switches its
 *  synchronisation off and forgets the last result of the network diagnosis. 0;
 *  -1: the clock could not be set, and nothing else was done. Main thread. */
int set_system_time(time_t seconds);

#endif
