// What packages say about the tool that made them.
#pragma once

#include "host/version.h"

namespace tovrek {

inline constexpr const char* kToolsBuildNumber = kToolBuild;

}  // namespace tovrek
