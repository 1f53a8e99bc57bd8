// All load commands of an image with their fields.
#pragma once

#include "companions/objects/Image.h"
#include "companions/objects/Output.h"

namespace tovrek::otool {

// Field names, widths and number formats are those that scripts know; `verbose` puts names for
// protections, flags, platforms and tools. A command too short for its kind shows the fields that
// it has.
template <class P>
void listLoadCommands(const objects::Image<P>& image, bool verbose, objects::Output* output);

}  // namespace tovrek::otool
