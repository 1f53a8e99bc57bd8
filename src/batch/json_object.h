// Reading one JSON object whose members are no lists or objects (RFC 8259).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek::batch {

// A member's value: texts without their escapes, numbers and booleans as they are written; none for
// null.
using JsonMember = std::pair<std::string, std::optional<std::string>>;

// The members in their order. None, with the reason, for anything else, for a name that stands
// there twice, and for text that is not UTF-8.
std::optional<std::vector<JsonMember>> readJsonObject(std::string_view text, ErrorText* error);

// The value of that name; empty where there is none.
std::string memberText(const std::vector<JsonMember>& members, std::string_view name);

}  // namespace tovrek::batch
