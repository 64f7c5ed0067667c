/**
 * Worker threads.
 */
#ifndef THREAD_H
#define THREAD_H

/** Starts a detached thread. `name` (at most 15 characters) shows in the
 *  device's process list; the thread owns what `argument` points to from the
 *  moment of success. False: the thread could not be started. */
bool start_detached(const char *name, void *(*body)(void *), void *argument = nullptr);

#endif
