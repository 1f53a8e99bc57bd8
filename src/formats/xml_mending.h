// What can be made out of damaged XML.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

// The document without what makes no sense in it, well formed, in UTF-8; by the program `mend-xml`
// beside this one, which has the library for it. None when nothing can be made out of it, or it
// asks for too much; why the program could not be run is added to the reason in the slot.
std::optional<std::string> mendedXml(std::string_view bytes, ErrorText* error);

}  // namespace tovrek
