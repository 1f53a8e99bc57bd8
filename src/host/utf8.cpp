#include "host/utf8.h"

#include <cstdint>

namespace tovrek {
namespace {

// Bytes after `lead`, and the smallest code point that needs as many; -1 for no lead byte.
int continuationCount(unsigned char lead, uint32_t* smallest) {
  if (lead < 0x80) return *smallest = 0, 0;
  if (lead >= 0xc2 && lead < 0xe0) return *smallest = 0x80, 1;
  if (lead >= 0xe0 && lead < 0xf0) return *smallest = 0x800, 2;
  if (lead >= 0xf0 && lead < 0xf5) return *smallest = 0x10000, 3;
  return -1;
}

}  // namespace

bool isUtf8(std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); i++) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    uint32_t smallest = 0;
    const int count = continuationCount(lead, &smallest);
    if (count < 0 || bytes.size() - i <= static_cast<size_t>(count)) return false;
    uint32_t point = count == 0 ? lead : lead & (0x3fU >> count);
    for (int k = 0; k < count; k++) {
      const auto next = static_cast<unsigned char>(bytes[++i]);
      if ((next & 0xc0) != 0x80) return false;
      point = point << 6 | (next & 0x3fU);
    }
    if (point < smallest || point > 0x10ffff || (point >= 0xd800 && point < 0xe000)) return false;
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
