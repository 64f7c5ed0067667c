/**
 * The two ways out of the library: the local transport of a test and the
 * connection to a broker.
 */
#ifndef VIRTUAL_NXAPI_TRANSPORT_H
#define VIRTUAL_NXAPI_TRANSPORT_H

#include <optional>
#include <string_view>

namespace nxapi {

/** True between `begin_local` and `end_local`. */
bool is_local();

/** Hands a call of the agent to the sink of the local transport: its result, or
 *  nothing when the process is not local. Any thread. */
std::optional<int> local_call(const char *call, std::string_view data = {});

}  // namespace nxapi

#endif
