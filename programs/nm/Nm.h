// Stand-in for Apple's `nm`: the symbols of Mach-O files.
#pragma once

#include "host/program.h"

namespace tovrek::nm {

// Runs one command line and answers the exit status: 1 for wrong usage, a file that cannot be
// read or is no Mach-O file, an architecture that is not there, and a damaged image, of which the
// symbols that can be read are listed all the same. Unlike the original it shows every slice of a
// universal file on any host.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{.name = "nm"};

}  // namespace tovrek::nm
