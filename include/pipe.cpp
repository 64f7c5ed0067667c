#include "pipe.h"

#include <cstring>

#include "platform/systool.h"

bool shell_word_is_safe(const char *text, const char *function, int line) {
    if (prod_system_param_valid(text) != 0 && strpbrk(text, "'\" ") == nullptr) {
        return true;
    }
    printf("IN %s on %d cmd check error\n", function, line);
    return false;
}

size_t pipe_read(const Pipe &pipe, char *buffer, size_t size) {
    const size_t length = fread(buffer, 1, size - 1, pipe.get());
    buffer[length] = '\0';
    return length;
}
