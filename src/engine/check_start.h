// Where an executable starts: its entry point and first stack.
#pragma once

#include "engine/SegmentFacts.h"
#include "macho/Image.h"

namespace tovrek::macho {

template <class Arch>
void checkStack(const Image<typename Arch::P>& image, const SegmentFacts<typename Arch::P>& facts);

// There must be a text segment.
template <class Arch>
void checkEntryPoint(const Image<typename Arch::P>& image,
                     const SegmentFacts<typename Arch::P>& facts);

}  // namespace tovrek::macho
