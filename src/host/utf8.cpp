#include "host/utf8.h"

#include <cstdint>

namespace tovrek {

CodePoint firstCodePoint(std::string_view bytes) {
  const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  if (bytes.empty()) return {};
  const uint8_t lead = at(0);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length) return {};
  uint32_t value = lead & (0x7FU >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return {};
    value = value << 6 | (at(i) & 0x3FU);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < kSmallest[length] || value > 0x10FFFF || isSurrogate) return {};
  return {value, length};
}

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t length = firstCodePoint(bytes).length;
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

size_t utf16Length(std::string_view utf8) {
  size_t length = 0;
  for (const char byte : utf8) {
    const auto value = static_cast<unsigned char>(byte);
    if ((value & 0xc0) != 0x80) length += value >= 0xf0 ? 2 : 1;
  }
  return length;
}

void appendUtf8(std::string* to, uint32_t point) {
  const auto put = [&](uint32_t byte) { *to += static_cast<char>(byte); };
  if (point < 0x80) return put(point);
  if (point < 0x800) {
    put(0xC0 | point >> 6);
  } else if (point < 0x10000) {
    put(0xE0 | point >> 12);
    put(0x80 | (point >> 6 & 0x3F));
  } else {
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
  }
  put(0x80 | (point & 0x3F));
}

}  // namespace tovrek
