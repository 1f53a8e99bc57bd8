// Relocation entries of images that are not adjusted by loader opcodes.
#pragma once

#include "engine/SegmentFacts.h"
#include "macho/Image.h"

namespace tovrek::macho {

template <class Arch>
void checkRelocations(const Image<typename Arch::P>& image,
                      const SegmentFacts<typename Arch::P>& facts);

}  // namespace tovrek::macho
