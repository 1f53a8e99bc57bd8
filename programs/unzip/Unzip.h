// The program unzip.
#pragma once

#include "host/program.h"

namespace tovrek::unzip {

// Gives the exit status.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "unzip"};

}  // namespace tovrek::unzip
