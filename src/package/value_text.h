// Values of property lists as texts for people.
#pragma once

#include <string>

#include "formats/PlistValue.h"

namespace tovrek {

// Any value as text; empty for none.
std::string returnString(const PlistValue* value);

}  // namespace tovrek
