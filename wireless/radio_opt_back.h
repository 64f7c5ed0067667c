/**
 * The report that a radio optimisation has ended.
 */
#ifndef WIRELESS_RADIO_OPT_BACK_H
#define WIRELESS_RADIO_OPT_BACK_H

/** Starts a thread that reports 40 seconds later. Always 0. Each call reports for
 *  itself. */
int radio_opt_result_back();

/** Thread body: waits and uploads {"result": 0}. */
void *radio_opt_back(void *);

#endif
