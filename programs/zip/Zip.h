// The program zip.
#pragma once

#include "host/program.h"

namespace tovrek::zip {

// Gives the exit status. An archive named by $TOVREK_PACKED_SOURCE may give packed forms of
// unchanged files.
int run(const Arguments& arguments, const Streams& streams);

inline constexpr ProgramRules kRules{
    .name = "zip", .keepsFreedMemory = true, .cleansUpOnSignals = true};

}  // namespace tovrek::zip
