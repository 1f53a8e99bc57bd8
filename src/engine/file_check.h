// Validation of a whole file that is in memory already.
#pragma once

#include <string>

#include "engine/AcceptanceRules.h"
#include "macho/ByteView.h"

namespace tovrek::macho {

// Validates a thin image, or the slices of a universal file up to the first of an unknown
// architecture. Throws MachORebuildErrors or EngineText; `path` serves for traces only.
void checkFile(ByteView file, const std::string& path, bool sdkOrder, bool libraryType,
               const AcceptanceRules& rules);

}  // namespace tovrek::macho
