// The libraries that an image uses, and its own name as one.
#pragma once

#include "listing/Output.h"
#include "macho/Image.h"

namespace tovrek::otool {

template <class P>
void listLibraries(const macho::Image<P>& image, listing::Output* output);
// Prints nothing for an image that is no library.
template <class P>
void listLibraryId(const macho::Image<P>& image, listing::Output* output);

}  // namespace tovrek::otool
