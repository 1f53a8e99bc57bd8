// Validation of one thin Mach-O image.
#pragma once

#include "engine/CheckOptions.h"
#include "log/WrapperLogger.h"
#include "macho/ByteView.h"

namespace tovrek::macho {

// All failures are thrown: MachORebuildErrors, or EngineText where the engine has its own words.
// No operation touches a byte outside the image, whatever the image claims about itself.
template <class Arch>
class MachOChecker {
 public:
  // Runs all checks, in the order in which their verdicts count.
  static void doCheck(ByteView bytes, const CheckOptions& options, const WrapperLogger& logger);
};

}  // namespace tovrek::macho
