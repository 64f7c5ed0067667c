#include "trace.h"

#include <cstdarg>
#include <cstdio>

int nx_debug_state = 0;

int nx_trace(const char *function, int line, const char *format, ...) {
    if (nx_debug_state == 0) {
        return 0;
    }
    // Threads trace too: hold the stream, so that a line stays in one piece.
    flockfile(stdout);
    va_list args;
    va_start(args, format);
    const int head = printf("[%s][%d] : ", function, line);
    const int text = vprintf(format, args);
    va_end(args);
    funlockfile(stdout);
    return head + text;
}
