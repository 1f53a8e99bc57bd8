// The person at the terminal.
#pragma once

#include <string>

namespace tovrek {

// Whether somebody types what comes on standard input.
bool inputIsTyped();
// Whether standard output goes to a terminal.
bool outputIsTerminal();

// Whether somebody sees what goes to standard error.
bool errorIsSeen();

// Shows the prompt and reads a line without showing it. Empty when there is no terminal.
std::string readUnseen(const std::string& prompt);

}  // namespace tovrek
