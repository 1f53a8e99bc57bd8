// Bytes as hexadecimal digits, two for each.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

std::string hexLower(std::string_view bytes);
std::string hexUpper(std::string_view bytes);

// The value of one digit of either case; -1 for anything else.
int hexDigitValue(char digit);

// The bytes of an even run of digits of either case; none for anything else.
std::optional<std::string> bytesFromHex(std::string_view digits);

}  // namespace tovrek
