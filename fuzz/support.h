/**
 * What every fuzz target stands on: one virtual access point for the process,
 * the four families registered, and the target in the place of the cloud.
 */
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

/** One target; defined once in each program. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzz {

/** Opens the device at the first call; afterwards only forgets the journal. */
void device();

/** Input as a text that ends at its first NUL byte, as every reader of a
 *  C text sees it. */
std::string text_of(const uint8_t *data, size_t size);

/** Writes the input as the file at a device path ("/tmp/file_topo"). */
void write_file(const char *device_path, const uint8_t *data, size_t size);

/** Runs a command through its registered slot, and lets the worker threads that
 *  it may have started come to their end. */
void command(const std::string &family, int slot, const std::string &request);

}  // namespace fuzz

#endif
