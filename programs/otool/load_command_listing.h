// All load commands of an image with their fields.
#pragma once

#include "listing/Output.h"
#include "macho/Image.h"

namespace tovrek::otool {

// Field names, widths and number formats are those that scripts know; `verbose` puts names for
// protections, flags, platforms and tools. A command too short for its kind shows the fields that
// it has.
template <class P>
void listLoadCommands(const macho::Image<P>& image, bool verbose, listing::Output* output);

}  // namespace tovrek::otool
