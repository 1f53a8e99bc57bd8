// Questions about text in UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tovrek {

// Without overlong forms, surrogates and code points above U+10FFFF (RFC 3629).
bool isUtf8(std::string_view bytes);

// Length in UTF-16 units, which Apple's string lengths are counted in.
size_t utf16Length(std::string_view utf8);

// Appends a code point, which must be one: up to U+10FFFF and no surrogate.
void appendUtf8(std::string* to, uint32_t point);

}  // namespace tovrek
