// The headers of universal files and of images.
#pragma once

#include "companions/objects/Image.h"
#include "companions/objects/ObjectFile.h"
#include "companions/objects/Output.h"

namespace tovrek::otool {

// Prints nothing for a thin file.
void listUniversalHeader(const objects::ObjectFile& file, bool verbose, objects::Output* output);

template <class P>
void listHeader(const objects::Image<P>& image, bool verbose, objects::Output* output);

}  // namespace tovrek::otool
