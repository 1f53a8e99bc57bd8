// The program Inspect: says what apps, packages, profiles and certificates are, and what a device
// or the toolkit would refuse.
#pragma once

#include "host/program.h"

namespace tovrek::inspect {

enum ExitStatus {
  kNothingFound = 0,
  kErrorsFound = 1,  // with --strict also for warnings
  kCannotTell = 2,   // wrong usage, or an input that cannot be read
};

int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::inspect
