// Commands from standard input, one in a line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/security/commands.h"

namespace tovrek::security {

// The words of a line, apart at blanks. Quotes of both kinds keep blanks; a backslash keeps the
// next character as it is, but not between apostrophes. None when a quote is not closed.
std::optional<Words> wordsOf(std::string_view line);

// Runs each line of standard input by `run` until the end or "quit", showing the prompt where
// somebody types. Empty lines and those that start with "#" are passed over. Answers the status of
// the last command.
int runLines(const std::string& prompt, Command run, const Streams& streams);

}  // namespace tovrek::security
