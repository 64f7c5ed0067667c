/**
 * The loop over the descriptors that are served on the main thread.
 */
#ifndef CORE_EVENT_LOOP_H
#define CORE_EVENT_LOOP_H

#include "platform/nxapi.h"

/** Link of the circular list of poll items. */
struct poll_link {
    poll_link *next;
    poll_link *prev;
};

/** One watched descriptor, allocated with `malloc`. */
struct poll_item : poll_link {
    int fd;
    int events; /**< wanted `poll` mask, POLLIN or POLLOUT */
    nx_poll_cb callback;
};

/** The list's head; the newest item comes first. Main thread only. */
extern poll_link pitems;

/** Puts an item at the front of the list. Null: list full, or out of memory, each with
 *  a trace line of the caller's. */
poll_item *poll_item_add(int fd, int events, nx_poll_cb callback,
                         const char *function = __builtin_FUNCTION());

/** Watches a descriptor; `event` 0: readable, 1: writable. 0; -1: other event,
 *  list full, or out of memory. */
extern "C" int start_poll_fn(int fd, int event, nx_poll_cb callback);

/** Stops watching; `item` is the callback's first argument and is freed. Always 0. */
extern "C" int stop_poll_fn(void *item);

/** Waits once for the watched descriptors and calls back those that are ready. */
void poll_once();

#endif
