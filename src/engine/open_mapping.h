// Files in memory, with the engine's codes for why one cannot be.
#pragma once

#include <string>

#include "host/FileMapping.h"

namespace tovrek {

// Throws MachORebuildErrors.
void openMapping(FileMapping& file, const std::string& path, FileMapping::Mode mode);

}  // namespace tovrek
