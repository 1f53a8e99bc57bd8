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

}  // namespace tovrek
