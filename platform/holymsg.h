/**
 * Message bus between the daemons and kernel modules of the device.
 * All calls may be made from any thread.
 */
#ifndef PLATFORM_HOLYMSG_H
#define PLATFORM_HOLYMSG_H

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/** Receives one message, on the bus's own thread. `data` is NUL-terminated;
 *  `length` is its length without the NUL. Both texts last for the call. */
typedef void (*holymsg_callback)(const char *topic, const char *data, int length, void *user);

/** Starts the bus on a thread of its own and returns at once. */
void holymsg_run_async(void);

/** Subscribes to a topic for the life of the process. 0: done. */
int holymsg_subscribe(const char *topic, holymsg_callback callback, void *user);

/**
 * Publishes `length` bytes, copied during the call. 0: done.
 * On "net_topo.to_kernel" a message is a 32-bit command code in native byte
 * order, for codes 2 and 3 followed by a JSON text with its NUL.
 */
int holymsg_publish(const char *topic, const void *data, int length);

/**
 * Publishes and waits for the answer, at most 3 seconds.
 * @param answer receives a JSON object that the caller deletes; untouched when
 *               there is no answer
 * @return 0 when no answer came, nonzero otherwise
 */
int holymsg_publish_and_respond(const char *topic, const void *data, int length,
                                struct cJSON **answer);

#ifdef __cplusplus
}
#endif

#endif
