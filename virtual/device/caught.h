/**
 * What the calls that libvap takes from libc share.
 */
#ifndef VIRTUAL_DEVICE_CAUGHT_H
#define VIRTUAL_DEVICE_CAUGHT_H

#include <dlfcn.h>

#include "virtual/device/machine.h"

namespace vap {

/** The function of that name behind this one: libc's. */
template <typename Function>
Function *real(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

/** Does a call with this return address come from the agent, which is the
 *  program itself? The libraries of the process (TLS, the MQTT client) keep the
 *  machine's own time, threads and luck. */
bool from_agent(const void *return_address);

/** The current device, unless the call is libvap's own. */
std::shared_ptr<Machine> caught();

/** The current device if `path` is one of its paths and the call is to be
 *  redirected. */
std::shared_ptr<Machine> caught(const char *path);

/** Is this call of the agent planned to fail? Sets errno. */
bool fails(const char *op, const void *return_address);

/** Descriptor of the switch's counter file, opened with these flags. */
int open_counters(Machine &device, int flags);

}  // namespace vap

/** In an interposed function: the address that called it. */
#define VAP_CALLER __builtin_return_address(0)

#endif
