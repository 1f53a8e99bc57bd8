#include "engine/open_mapping.h"

#include "engine/MachORebuildErrors.h"

namespace tovrek {

void openMapping(FileMapping& file, const std::string& path, FileMapping::Mode mode) {
  switch (file.open(path, mode)) {
    case FileMapping::Opened::kDone:
      return;
    case FileMapping::Opened::kOpenFailed:
      throw MachORebuildErrors::kOpen;
    case FileMapping::Opened::kStatFailed:
      throw MachORebuildErrors::kStat;
    case FileMapping::Opened::kMapFailed:
      throw MachORebuildErrors::kMap;
  }
}

}  // namespace tovrek
