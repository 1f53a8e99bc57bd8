// Keyed archives: one value as a binary property list of numbered objects, the form in which
// Apple's archiver writes property-list values.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek {

std::string archiveObject(const PlistValue& value);
// None for anything but an archive of such a value. Objects that hold themselves are refused.
std::optional<PlistValue> unarchiveObject(std::string_view archive);

// An archive of the value as text: in base64, twice.
std::string encodeObject(const PlistValue& object);
std::optional<PlistValue> objectDecode(std::string_view text);

}  // namespace tovrek
