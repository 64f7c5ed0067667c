/**
 * What the library has to say: sentences on standard error.
 */
#ifndef NXAPI_LOG_H
#define NXAPI_LOG_H

namespace nxapi {

/** Levels as syslog numbers them; `set_debug_level` sets the highest that is
 *  said. */
enum class Level { error = 3, warning = 4, notice = 5, debug = 7 };

void set_level(int level);

/** Says a sentence, "nxapi: " before it and a line end behind it. Any thread. */
[[gnu::format(printf, 2, 3)]] void say(Level level, const char *format, ...);

}  // namespace nxapi

#endif
