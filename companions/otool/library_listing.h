// The libraries that an image uses, and its own name as one.
#pragma once

#include "companions/objects/Image.h"
#include "companions/objects/Output.h"

namespace tovrek::otool {

template <class P>
void listLibraries(const objects::Image<P>& image, objects::Output* output);
// Prints nothing for an image that is no library.
template <class P>
void listLibraryId(const objects::Image<P>& image, objects::Output* output);

}  // namespace tovrek::otool
