// Questions about text in UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tovrek {

struct CodePoint {
  uint32_t value = 0;
  size_t length = 0;  // in bytes; 0 where they are not UTF-8
};

// The code point that the bytes begin with. Overlong forms, surrogates and what lies above U+10FFFF
// are not UTF-8 (RFC 3629), nor are no bytes at all.
CodePoint firstCodePoint(std::string_view bytes);

bool isUtf8(std::string_view bytes);

// Length in UTF-16 units, which Apple's string lengths are counted in.
size_t utf16Length(std::string_view utf8);

// Appends a code point, which must be one: up to U+10FFFF and no surrogate.
void appendUtf8(std::string* to, uint32_t point);

}  // namespace tovrek
