// Passwords that a user gives.
#pragma once

#include <optional>
#include <string>

#include "programs/security/Options.h"

namespace tovrek::security {

// The value of the option's letter, else what is typed after the prompt, else a line of standard
// input where that is no terminal.
std::string passwordFrom(const Options& options, char letter, const std::string& prompt);
// The same; none where standard input ends without a line.
std::optional<std::string> givenPassword(const Options& options, char letter,
                                         const std::string& prompt);

}  // namespace tovrek::security
