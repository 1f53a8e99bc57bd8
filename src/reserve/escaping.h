// Percent codes for the characters that separate the parts of an address.
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// Percent codes for seventeen characters; the percent sign itself stays as it is.
std::string convertToEscapeString(std::string_view text);
std::string convertFromUnescapedString(std::string_view text);

}  // namespace tovrek
