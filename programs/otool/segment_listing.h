// Segment commands and their sections.
#pragma once

#include "listing/Image.h"
#include "listing/Output.h"

namespace tovrek::otool {

template <class P>
void listSegment(const listing::Image<P>& image, const macho::CommandView& command, bool verbose,
                 listing::Output* output);

}  // namespace tovrek::otool
