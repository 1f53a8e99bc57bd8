// What an XML document may ask of the parser, told before it is parsed: a check that the parser
// makes itself comes after the time or memory is spent.
#pragma once

#include <string>
#include <string_view>

#include "host/limits.h"

namespace tovrek {

// Empty while the document keeps within the limits and markupFault() finds nothing, else what is
// wrong with it.
std::string excessOfXml(std::string_view bytes, const Limits& limits = limitsInForce());

}  // namespace tovrek
