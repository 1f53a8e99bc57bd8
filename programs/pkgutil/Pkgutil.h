// Answers whether the developer tools are installed.
#pragma once

#include "host/program.h"

namespace tovrek::pkgutil {

// They are when the companions that stand in for them are there. The exit status.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::pkgutil
