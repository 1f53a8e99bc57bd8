// Runs the developer tools of the host root by name, and packages apps.
#pragma once

#include "host/program.h"

namespace tovrek::xcrun {

// Gives the exit status; a tool that is run takes the place of this process.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::xcrun
