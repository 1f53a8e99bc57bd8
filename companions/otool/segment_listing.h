// Segment commands and their sections.
#pragma once

#include "companions/objects/Image.h"
#include "companions/objects/Output.h"

namespace tovrek::otool {

template <class P>
void listSegment(const objects::Image<P>& image, const macho::CommandView& command, bool verbose,
                 objects::Output* output);

}  // namespace tovrek::otool
