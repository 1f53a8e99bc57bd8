// The readers of the two forms of property lists; parsePlist() chooses between them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"
#include "host/limits.h"

namespace tovrek {

// None, with a clause like "line 3: ..." in `reason`, for what is no such list or exceeds
// the limits. Neither reader recurses further than the limits allow.
std::optional<PlistValue> readXmlPlist(std::string_view bytes, const Limits& limits,
                                       std::string* reason);
std::optional<PlistValue> readBinaryPlist(std::string_view bytes, const Limits& limits,
                                          std::string* reason);

// A dictionary from keys and values as a file lists them: a repeated key keeps its first place
// and its last value.
PlistDictionary dictionaryOf(std::vector<PlistDictionary::Entry> entries);

}  // namespace tovrek
