// Base64 with the standard alphabet and padding (RFC 4648).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// The digits, in one line.
std::string base64Of(std::string_view bytes);

// What the digits stand for: groups of four, the last one filled up with "=". None for anything
// else, line breaks included. Bits that the last group has too many do not count.
std::optional<std::string> bytesFromBase64(std::string_view digits);

}  // namespace tovrek
