/**
 * Files that the tool reads and writes.
 */
#ifndef TOOLS_NXCTL_FILES_H
#define TOOLS_NXCTL_FILES_H

#include <string>

namespace nxctl {

/** All bytes of a file; of standard input for "-". Throws Failure with the reason. */
std::string whole_file(const std::string &path);

/** Puts a file in place as a whole, readable by its owner alone. Throws Failure. */
void replace_file(const std::string &path, const std::string &bytes);

}  // namespace nxctl

#endif
