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

/** The device as it is at the start of each input: opened at the first call,
 *  afterwards its configuration is put back and its journal emptied. */
void device();

/** The input as a text that ends at its first NUL byte, as every reader of a C text
 *  sees it. */
std::string text_of(const uint8_t *data, size_t size);

/** An input whose first line says what the rest is for. */
struct Input {
    std::string head;
    std::string body;
};
Input input_of(const uint8_t *data, size_t size);

/** Runs the command in a slot, "wlan/0", and lets the worker threads that it may have
 *  started come to their end. Ends the process when the answer is no whole one. A
 *  name without a slot does nothing. */
void command(const std::string &name, const std::string &request = "");

/** Writes a file at a device path ("/tmp/file_topo"), which lasts until the next
 *  input for it. */
void write_file(const std::string &device_path, const std::string &text);

/** What every shell command prints during this input; no shell is started. */
void shell_prints(const std::string &text);

}  // namespace fuzz

#endif
