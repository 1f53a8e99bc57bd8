// The headers of universal files and of images.
#pragma once

#include "listing/Output.h"
#include "macho/Image.h"
#include "macho/ObjectFile.h"

namespace tovrek::otool {

// Prints nothing for a thin file.
void listUniversalHeader(const macho::ObjectFile& file, bool verbose, listing::Output* output);

template <class P>
void listHeader(const macho::Image<P>& image, bool verbose, listing::Output* output);

}  // namespace tovrek::otool
