/**
 * Trace lines: one text on standard output, "[function][line] : " in front,
 * printed only while the debug flag is set.
 */
#ifndef TRACE_H
#define TRACE_H

/** The debug flag, read once from "nx.debug" before any thread starts. */
extern int nx_debug_state;

/** Prints one trace line; the number of characters, 0 while the flag is off. */
int nx_trace(const char *function, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#define NX_TRACE(...) nx_trace(__func__, __LINE__, __VA_ARGS__)

/** The same for a part of a function that is told of under the whole one's name. */
#define NX_TRACE_AS(function, ...) nx_trace(function, __LINE__, __VA_ARGS__)

#endif
