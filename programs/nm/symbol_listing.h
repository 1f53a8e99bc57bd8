// The symbols of one image, chosen, sorted and printed as the options say.
#pragma once

#include <string_view>

#include "listing/Output.h"
#include "macho/Image.h"
#include "programs/nm/NmOptions.h"

namespace tovrek::nm {

enum class Listed { kSymbols, kNone, kNotAll };

// `prefix` stands before each line. kNone: the image has no symbols at all. kNotAll: the names are
// together many times longer than the image, so that only a file made to repeat itself has them.
template <class P>
Listed listSymbols(const macho::Image<P>& image, const NmOptions& options, std::string_view prefix,
                   listing::Output* output);

}  // namespace tovrek::nm
