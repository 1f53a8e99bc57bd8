// The headers of universal files and of images.
#pragma once

#include "listing/Image.h"
#include "listing/ObjectFile.h"
#include "listing/Output.h"

namespace tovrek::otool {

// Prints nothing for a thin file.
void listUniversalHeader(const listing::ObjectFile& file, bool verbose, listing::Output* output);

template <class P>
void listHeader(const listing::Image<P>& image, bool verbose, listing::Output* output);

}  // namespace tovrek::otool
