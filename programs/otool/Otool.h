// Stand-in for Apple's `otool`: headers, load commands, libraries and Objective-C metadata.
#pragma once

#include "host/program.h"

namespace tovrek::otool {

// Runs one command line and answers the exit status: 1 for wrong usage, a file that cannot be
// read, an architecture that is not there, and a damaged image, of which all that can be read is
// listed all the same. Unlike the original it shows every slice of a universal file on any host.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "otool"};

}  // namespace tovrek::otool
