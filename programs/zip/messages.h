// What zip prints besides the entries.
#pragma once

#include <string_view>

#include "programs/zip/ZipOptions.h"

namespace tovrek::zip {

// A warning, unless the options ask for quiet.
void warn(const ZipOptions& options, std::string_view text);
// Prints the error, with the system's reason unless `reason` is 0, and gives `status`.
int failWith(int status, std::string_view text, int reason = 0);
int failNothingToDo(const ZipOptions& options);

}  // namespace tovrek::zip
