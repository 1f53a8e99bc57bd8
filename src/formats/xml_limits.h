// What an XML document may ask of the parser, told before it is parsed: a check that the parser
// makes itself comes after the time or memory is spent.
#pragma once

#include <string>
#include <string_view>

#include "formats/limits.h"

namespace tovrek {

// Empty while the document keeps within the limits, else which of them it passes.
std::string excessOfXml(std::string_view bytes, const XmlLimits& limits = {});

}  // namespace tovrek
