/**
 * The library without a broker: a test takes the place of the cloud, inside the
 * process.
 */
#ifndef NXAPI_LOCAL_H
#define NXAPI_LOCAL_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nxapi {

/** One upload or registration of the agent, as the library was given it. */
struct Upload {
    std::string call; /**< name of the library function */
    std::string data; /**< the bytes, all `length` of them */
    int length = 0;
};

/** Receives every upload, on the thread that makes it; its result becomes the
 *  result of the agent's call (-1: refused). */
using UploadSink = std::function<int(const Upload &)>;

/** Switches the process to the local transport until `end_local`; no settings
 *  file is read and no thread is started. Forgets all registrations. */
void begin_local(UploadSink sink);
void end_local();

/** What a command gave back. */
struct Answer {
    int result = -1;                     /**< of the agent's callback */
    std::optional<std::string> response; /**< all `length` bytes of it */
    int length = 0;
};

/** Runs a registered command on the calling thread. `family` is "cloud", "dev",
 *  "net" or "wlan"; null `request` hands the agent a null pointer. An empty or
 *  unknown slot gives result -1 without a response. */
Answer call(const std::string &family, int slot, const char *request);

/** Assigns a serial number, as the cloud does. */
int assign_serial(const std::string &serial);

}  // namespace nxapi

#endif
