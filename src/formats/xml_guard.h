// What is not given to libxml2, as it would take for ever.
#pragma once

#include <string>
#include <string_view>

#include "host/limits.h"

namespace tovrek {

// Why a document is not to be parsed, with the line; empty for one that may be. libxml2's time
// grows with the square of the number of attributes that an element has, those included that it has
// by declaration. The bounds are far above what documents hold that anybody writes. Encodings in
// which "<" is not the byte of that letter, zero bytes aside, are not looked through: excessOfXml()
// keeps such documents short.
std::string markupFault(std::string_view document, const Limits& limits);

}  // namespace tovrek
