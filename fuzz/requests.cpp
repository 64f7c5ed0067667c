/**
 * Requests of all four families. The first line names the command, "wlan/0";
 * the rest is the request.
 */
#include <cstdlib>

#include "fuzz/support.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = fuzz::text_of(data, size);
    const size_t line_end = text.find('\n');
    const size_t slash = text.find('/');
    if (line_end == std::string::npos || slash > line_end) {
        return 0;
    }
    fuzz::device();
    fuzz::command(text.substr(0, slash), atoi(text.c_str() + slash + 1), text.substr(line_end + 1));
    return 0;
}
