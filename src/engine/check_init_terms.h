// Lists of functions that the loader calls at start and end: the pointers must lead into the code
// and must be slid with it.
#pragma once

#include <cstdint>

#include "engine/SegmentFacts.h"
#include "macho/Image.h"

namespace tovrek::macho {

// There must be a text segment; `relocationBase` is where relocation entries count from.
template <class P>
void checkInitTerms(const Image<P>& image, const SegmentFacts<P>& facts, uint64_t relocationBase);

}  // namespace tovrek::macho
