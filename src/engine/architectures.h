// Which of the six architectures an image is of.
#pragma once

#include "engine/MachORebuildErrors.h"
#include "macho/ByteView.h"
#include "macho/traits.h"

namespace tovrek::macho {

// Whether magic number, cputype and file type are those of an image of this architecture.
template <class Arch>
bool validFile(ByteView image) {
  macho_header<typename Arch::P> header;
  if (!image.read(0, &header)) return false;
  if (header.magic != Arch::kMagic || header.cputype != Arch::kCpuType) return false;
  const uint32_t type = header.filetype;
  return type == MH_EXECUTE || type == MH_DYLIB || type == MH_DYLINKER || type == MH_BUNDLE;
}

// Calls visit.template operator()<Arch>() for the architecture of this cputype. False, without a
// call, when it is none of the six.
template <class Visitor>
bool visitArchOf(uint32_t cputype, Visitor&& visit) {
  return tryArchitectures([&]<class Arch>() {
    if (cputype != Arch::kCpuType) return false;
    visit.template operator()<Arch>();
    return true;
  });
}

// The same for the architecture of a thin image. Throws MachORebuildErrors when it has none.
template <class Visitor>
void visitArchOf(ByteView image, Visitor&& visit) {
  const bool known = tryArchitectures([&]<class Arch>() {
    if (!validFile<Arch>(image)) return false;
    visit.template operator()<Arch>();
    return true;
  });
  if (!known) throw MachORebuildErrors::kUnknownArchitecture;
}

}  // namespace tovrek::macho
