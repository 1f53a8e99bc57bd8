// Segments and their sections: sizes, overlaps, and containment in each other and in the file.
#pragma once

#include "engine/SegmentFacts.h"
#include "macho/Image.h"

namespace tovrek::macho {

template <class P>
SegmentFacts<P> checkSegments(const Image<P>& image);

// Whether there are the segments that every image has, with the text where the loader maps it.
template <class P>
void checkRequiredSegments(const Image<P>& image, const SegmentFacts<P>& facts);

}  // namespace tovrek::macho
