// Passwords that a user gives.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/Streams.h"
#include "programs/security/Options.h"

namespace tovrek::security {

// The value of the option's letter, else what is typed after the prompt, else a line of standard
// input where that is no terminal.
std::string passwordFrom(const Options& options, char letter, const std::string& prompt);
// The same; none where standard input ends without a line.
std::optional<std::string> givenPassword(const Options& options, char letter,
                                         const std::string& prompt);

// Tells that there is no password, and how to give one or none; the exit status.
int reportNoPassword(std::string_view call, char letter, const Streams& streams);

}  // namespace tovrek::security
