// Values of property lists as texts, and edits of texts.
#pragma once

#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek {

// Any value as text; empty for none.
std::string returnString(const PlistValue* value);

// `from` must have letters.
std::string replaceAll(std::string_view text, std::string_view from, std::string_view to);

}  // namespace tovrek
