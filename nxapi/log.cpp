#include "nxapi/log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace nxapi {
namespace {

std::atomic<int> highest{static_cast<int>(Level::warning)};

}  // namespace

void set_level(int level) {
    highest.store(level, std::memory_order_relaxed);
}

void say(Level level, const char *format, ...) {
    if (static_cast<int>(level) > highest.load(std::memory_order_relaxed)) {
        return;
    }
    char sentence[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(sentence, sizeof(sentence), format, arguments);
    va_end(arguments);
    // One call, so that the words of two threads do not mix.
    std::fprintf(stderr, "nxapi: %s\n", sentence);
}

}  // namespace nxapi
