// Segment commands and their sections.
#pragma once

#include "listing/Output.h"
#include "macho/Image.h"

namespace tovrek::otool {

template <class P>
void listSegment(const macho::Image<P>& image, const macho::CommandView& command, bool verbose,
                 listing::Output* output);

}  // namespace tovrek::otool
