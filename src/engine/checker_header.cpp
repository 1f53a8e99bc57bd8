// Checks of the Mach-O header.
#include "engine/MachOChecker.h"

namespace tovrek::macho {

template <class Arch>
void MachOChecker<Arch>::checkMachHeader() {
  if (commandsEnd() > image_.size()) throw MachORebuildErrors::kCommandsBeyondFile;
  if ((header_.flags & ~rules_.headerFlags) != 0) throw MachORebuildErrors::kHeaderFlags;
  const uint32_t type = header_.filetype;
  if ((header_.flags & MH_NO_REEXPORTED_DYLIBS) != 0 && type != MH_DYLIB) {
    throw MachORebuildErrors::kNoReexports;
  }
  if (type != MH_EXECUTE && type != MH_DYLIB && type != MH_BUNDLE) {
    throw MachORebuildErrors::kFileType;
  }
  positionIndependentOrLibrary_ = type != MH_EXECUTE || (header_.flags & MH_PIE) != 0;
}

#define TOVREK_INSTANTIATE(Arch) template void MachOChecker<Arch>::checkMachHeader();
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
