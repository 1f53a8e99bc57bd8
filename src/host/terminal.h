// The person at the terminal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// Whether somebody types what comes on standard input.
bool inputIsTyped();
// Whether standard output goes to a terminal.
bool outputIsTerminal();

// Whether somebody sees what goes to standard error.
bool errorIsSeen();

// How many characters fit into a line of the terminal that shows standard error; none where there
// is no terminal, or one that cannot draw over a line.
std::optional<size_t> errorLineWidth();
// Shows the text, no wider than that, in a line of its own that the next text takes the place of.
// Whatever is printed clears it first.
void showPassingLine(std::string_view text);
// Clears it where it is shown. A signal handler may call this.
void clearPassingLine() noexcept;
// For a copy of this process that has other streams: the line is not its own.
void forgetPassingLine() noexcept;

// Shows the prompt and reads a line without showing it. Empty when there is no terminal.
std::string readUnseen(const std::string& prompt);

}  // namespace tovrek
