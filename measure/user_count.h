/**
 * How many stations are associated with the access point.
 */
#ifndef MEASURE_USER_COUNT_H
#define MEASURE_USER_COUNT_H

/** Adds the number of stations on the enabled radios to `count`, whatever their SSIDs'
 *  state. Always 0. Any thread. */
int user_num_get(int *count);

#endif
