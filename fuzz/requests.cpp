/**
 * Requests of all four families. The first line names the command, "wlan/0"; the
 * rest is the request.
 */
#include "fuzz/support.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::Input input = fuzz::input_of(data, size);
    fuzz::device();
    fuzz::command(input.head, input.body);
    return 0;
}
