// Taking the output of tools apart.
#pragma once

#include <string_view>
#include <vector>

namespace tovrek {

// The pieces between separators: always one more than there are separators, empty ones kept.
// They borrow from `text`.
std::vector<std::string_view> splitAt(std::string_view text, char separator);

}  // namespace tovrek
