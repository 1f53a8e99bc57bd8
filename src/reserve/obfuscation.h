// Texts that are not to be read at a glance. No secrecy.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// Exclusive or with the repeated key; its own inverse. None when the result is not UTF-8.
std::optional<std::string> obfuscate(std::string_view text, std::string_view key);

}  // namespace tovrek
