// Texts of strangers in lines of output.
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// A name or other text of a stranger, for a line of output: control characters, line and paragraph
// separators and marks that change the direction of text as "\\x0a", by their bytes. Such a text
// could otherwise forge lines of its own, or what a terminal shows.
std::string printable(std::string_view text);

// The same for a text of several lines, whose line breaks and tabs stay.
std::string printableLines(std::string_view text);

// What becomes of line breaks in a text that is logged. They stay in one that has lines of its own,
// such as the output of a program; in any other they can only come from a name, and those at its
// end do no harm.
enum class LineBreaks { kEscaped, kKept };
std::string printable(std::string_view text, LineBreaks breaks);

}  // namespace tovrek
