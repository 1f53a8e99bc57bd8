// Text out of the input, made safe for the place where it is shown, and numbers for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek::inspect {

// For a terminal: control characters, bytes that are not UTF-8, and characters that change the
// direction or the order of what is shown appear as "\x1b" or "\u{202e}".
std::string forTerminal(std::string_view text);
// For HTML, in text and in quoted attributes.
std::string forHtml(std::string_view text);
// The inside of a JSON string. Bytes that are not UTF-8 become "\ufffd".
std::string forJson(std::string_view text);

// "12.3 MB".
std::string sizeText(uint64_t bytes);
// "2027-03-01", in UTC; "" for none.
std::string dateText(double secondsSince1970);
// A value of a property list in one line.
std::string valueText(const PlistValue& value);

}  // namespace tovrek::inspect
