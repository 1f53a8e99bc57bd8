// Stand-in for Apple's `lipo`: asks, splits and joins universal files.
#pragma once

#include "host/program.h"

namespace tovrek::lipo {

// Runs one command line and answers the exit status. Options and input files may come in any
// order:
//   FILE... -info                    FILE -verify_arch ARCH...      FILE -thin ARCH -output OUT
//   FILE -archs                      FILE... -detailed_info         FILE... -create -output OUT
// Failures are one line on standard error, "fatal error: PROGRAM: ...", and status 1; an output
// file is then left as it was.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "lipo"};

}  // namespace tovrek::lipo
