/**
 * The agent's process, as a device's process monitor keeps it.
 */
#ifndef TOOLS_VAP_AGENT_H
#define TOOLS_VAP_AGENT_H

#include <filesystem>

#include "virtual/folder/lock.h"

/** The agent's program: the one that was named, else norvex beside this program. Throws
 *  tools::Failure when there is none. */
std::filesystem::path find_agent(const std::filesystem::path &given);

/** Runs the agent, with the lock of its device, until this process gets SIGINT, SIGTERM
 *  or SIGHUP, and ends it then. It is started again at once after a restart of its
 *  device, and after a pause when it ended otherwise: a quarter of a second, twice as
 *  long each time, a minute at most, and from the beginning once it has lived for a
 *  minute. Throws tools::Failure when the very first start fails. */
void keep_agent(const std::filesystem::path &agent, const vap::RunLock &lock);

#endif
