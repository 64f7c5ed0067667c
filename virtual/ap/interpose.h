/**
 * What the calls that libvap takes from libc share.
 */
#ifndef VIRTUAL_AP_INTERPOSE_H
#define VIRTUAL_AP_INTERPOSE_H

#include <dlfcn.h>
#include <pthread.h>

#include "virtual/ap/machine.h"

namespace vap {

/** The function of that name behind libvap: libc's. */
template <typename Function>
Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/** Does a call with this return address come from the agent? Other libraries of
 *  the process (TLS, the MQTT client) keep the machine's own time. A sanitizer's
 *  runtime stands between the agent and libvap and counts as the agent. */
bool from_agent(const void *return_address);

/** Does it come from a sanitizer's runtime? */
bool from_sanitizer(const void *return_address);

/** The first library of the process that is a sanitizer's runtime, as an open
 *  handle; null when there is none. */
void *sanitizer_library();

/** The current device, unless the call is libvap's own. */
std::shared_ptr<Machine> caught();

/** The current device if `path` is one of its paths and the call is to be
 *  redirected. */
std::shared_ptr<Machine> caught(const char *path);

/** Is this call of the agent planned to fail? Sets errno. */
bool fails(const char *op, const void *return_address);

/** Creates a thread for the function that returns to `caller`: one of the agent's
 *  is counted, may fail as planned, and lives in the device's time. */
int create_thread(const void *caller, pthread_t *thread, const pthread_attr_t *attributes,
                  void *(*body)(void *), void *argument);

/** Descriptor of the switch's counter file, opened with these flags. */
int open_counters(Machine &device, int flags);

}  // namespace vap

/** In an interposed function: the address that called it. */
#define VAP_CALLER __builtin_return_address(0)

#endif
