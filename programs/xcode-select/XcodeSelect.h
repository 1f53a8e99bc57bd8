// Tells which of the programs that are run on this host are missing, and how to get them.
#pragma once

#include "host/program.h"

namespace tovrek::xcode_select {

// Gives the exit status.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::xcode_select
