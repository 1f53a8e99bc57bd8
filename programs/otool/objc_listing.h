// Classes, categories and protocols that the Objective-C runtime finds in an image.
#pragma once

#include "listing/Output.h"
#include "macho/Image.h"

namespace tovrek::otool {

// The form is that of the original for the runtime's second version; of the first one (32-bit
// programs for the Mac) nothing is shown. False when a list is damaged; what can be read of it is
// listed. The listing takes no more than a fixed multiple of the image's size.
template <class P>
bool listObjectiveC(const macho::Image<P>& image, listing::Output* output);

}  // namespace tovrek::otool
