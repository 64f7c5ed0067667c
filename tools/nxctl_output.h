/**
 * What the tool prints.
 */
#ifndef TOOLS_NXCTL_OUTPUT_H
#define TOOLS_NXCTL_OUTPUT_H

#include <chrono>
#include <cstdint>
#include <string>

#include "tools/nxctl_json.h"

namespace nxctl {

/** Prints at once. A reader that has gone ends the tool as it ends any filter. */
void print(const std::string &text);

/** Prints a line on standard error, where a line of progress makes room for it. */
void complain(const std::string &sentence);

/** True when people read standard output. */
bool is_terminal();

/** Columns of the terminal on standard output; 0 when it is none. */
size_t terminal_width();

/** A shown text that takes one row of the terminal at most. */
std::string one_row(const std::string &text);

/** "2026-07-01T12:34:56.789Z" of seconds since 1970; "?" for what is no such time. */
std::string utc(double seconds);

/** "2026-07-01T12:34Z" of seconds since 1970; "?" for what is no such time. */
std::string utc_minutes(double seconds);

/** The time of this moment, as `utc`. */
std::string utc_now();

/** A line on standard error that the next one replaces, where that is a terminal. */
class Progress {
  public:
    ~Progress() { clear(); }

    /** Shows it unless the last one is younger than a tenth of a second. */
    void show(const std::string &line);

    /** Takes it away, before anything else is printed. */
    void clear();

  private:
    std::chrono::steady_clock::time_point shown_;
    bool visible_ = false;
};

/** The payload of an upload for a machine: JSON, the name and size of a file, or text. */
Json upload_value(const std::string &kind, const std::string &payload);

/** The payload of an upload for people: indented lines that no device can break. */
std::string upload_text(const std::string &kind, const std::string &payload);

/** What stands before an uploaded file: bytes of its name, padded with NUL. */
inline constexpr size_t file_header = 32;

}  // namespace nxctl

#endif
