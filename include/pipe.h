/**
 * Output of shell commands.
 */
#ifndef PIPE_H
#define PIPE_H

#include <cstddef>
#include <cstdio>
#include <memory>

/** True when `text` may stand as one word of a shell command. A refused text is
 *  always announced on standard output, with the caller's name and line. */
bool shell_word_is_safe(const char *text, const char *function = __builtin_FUNCTION(),
                        int line = __builtin_LINE());

struct PipeClose {
    void operator()(FILE *pipe) const { pclose(pipe); }
};

/** Standard output of a running command; its owner waits for the command's end.
 *  `read_line` takes it as well. */
using Pipe = std::unique_ptr<FILE, PipeClose>;

/** Starts a shell command; null when it cannot be started. Words that come from
 *  outside must have passed `shell_word_is_safe`. */
inline Pipe pipe_open(const char *command) {
    return Pipe(popen(command, "re"));
}

/** Reads until the command's output ends or `size` - 1 bytes are in `buffer`, which
 *  is always terminated. Returns the number of bytes. */
size_t pipe_read(const Pipe &pipe, char *buffer, size_t size);

#endif
