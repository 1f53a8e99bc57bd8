// The program unzip.
#pragma once

#include "host/program.h"

namespace tovrek::unzip {

// Gives the exit status.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::unzip
