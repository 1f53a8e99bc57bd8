// A guard in front of the property-list parser.
#pragma once

#include <string_view>

namespace tovrek {

// Whether arrays and dictionaries are nested at most 200 deep, in either form. Judges nesting
// alone: what is no property list at all may pass and is for the parser to refuse.
bool plistDepthIsSane(std::string_view bytes);

}  // namespace tovrek
