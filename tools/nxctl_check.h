/**
 * A look at a request before it is sent.
 */
#ifndef TOOLS_NXCTL_CHECK_H
#define TOOLS_NXCTL_CHECK_H

#include <string>

#include "tools/nxctl_commands.h"

namespace nxctl {

/** What is wrong with a request: members that the command does not know, lacks, or takes in
 *  another type or range. Several faults are joined with "; ". Empty: nothing. The device
 *  would take such a request without a word and do something else. */
std::string faults_of(const Command &command, const std::string &request);

}  // namespace nxctl

#endif
