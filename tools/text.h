/**
 * Texts from outside, as a terminal may show them.
 */
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tools {

/** The text with everything in it that would move the cursor, change the terminal or
 *  turn the order of the letters made visible: control characters, bytes that are no
 *  UTF-8, invisible and direction-changing characters. "\x1b" stands for a byte,
 *  "\u202e" for a character. Tabs and line ends stay only where `lines` says so. */
std::string shown(std::string_view text, bool lines = false);

/** Columns that a terminal needs at most for a text that `shown` made: one for each
 *  ASCII character, two for every other. */
size_t columns(std::string_view text);

/** `shown`, cut to this many columns ("..." then ends it) or padded to them. */
std::string cell(std::string_view text, size_t width);

/** The lines of a text, shown and two columns in, each followed by a line end. Lines of
 *  more than `width` columns go on in the next, likewise two columns in, so that no line
 *  of the text ever stands at the edge; 0: lines are left as long as they are. */
std::string indented(std::string_view text, size_t width = 0);

/** Columns of a terminal that nobody has measured. */
inline constexpr size_t usual_width = 80;

/** The words of a text in lines of at most `width` columns (a longer word has its own),
 *  each but the first behind `from` blanks; the first begins there without them. */
std::string wrapped(const std::string &text, size_t width, size_t from = 0);

}  // namespace tools

#endif
