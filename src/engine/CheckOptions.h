// By what an image is judged.
#pragma once

#include "engine/AcceptanceRules.h"

namespace tovrek::macho {

struct CheckOptions {
  bool sdkOrder = false;     // the order of libraries that SDK-built executables keep
  bool libraryType = false;  // references to Intune's framework are accepted
  AcceptanceRules rules = {};
};

}  // namespace tovrek::macho
