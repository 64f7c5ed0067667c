/**
 * Who takes the calls of the agent: a test's local transport, or the client that is
 * linked to a broker.
 */
#ifndef NXAPI_TRANSPORT_H
#define NXAPI_TRANSPORT_H

#include <optional>
#include <string_view>

namespace nxapi {

/** Hands a call of the agent to the sink of the local transport: its result, or
 *  nothing when the process is not local. Any thread. */
std::optional<int> local_call(const char *call, std::string_view data = {});

/** Ends the client that `nx_api_lib_init` made, so that a test can make another. */
void close_cloud();

}  // namespace nxapi

#endif
