// The program that manages keychains and reads signed messages.
#pragma once

#include "host/program.h"

namespace tovrek::security {

// Runs one command. Answers the exit status: 0, 1 for failures of the command, 2 for wrong usage,
// else the low byte of a keychain status.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "security"};

}  // namespace tovrek::security
