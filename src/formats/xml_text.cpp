// What XML can hold of arbitrary bytes. Does without libxml2: programs that write nothing but
// property lists would load it for this alone.
#include <cstdint>

#include "formats/XmlDocument.h"

namespace tovrek {
namespace {

struct CodePoint {
  uint32_t value = 0;
  size_t length = 0;  // in bytes; 0 when the bytes are not UTF-8
};

// The first code point of `bytes`, which is not empty: shortest form only, no surrogates.
CodePoint firstCodePoint(std::string_view bytes) {
  const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  const uint8_t lead = at(0);
  if (lead < 0x80) return {lead, 1};
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || bytes.size() < length) return {};
  uint32_t value = lead & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return {};
    value = (value << 6) | (at(i) & 0x3Fu);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
  if (value < kSmallest[length] || value > 0x10FFFF || surrogate) return {};
  return {value, length};
}

bool isXmlCharacter(uint32_t value) {
  if (value < 0x20) return value == '\t' || value == '\n' || value == '\r';
  return value != 0xFFFE && value != 0xFFFF;
}

}  // namespace

std::string xmlText(std::string_view bytes) {
  std::string result;
  result.reserve(bytes.size());
  while (!bytes.empty()) {
    const CodePoint next = firstCodePoint(bytes);
    if (next.length != 0 && isXmlCharacter(next.value)) result += bytes.substr(0, next.length);
    bytes.remove_prefix(next.length != 0 ? next.length : 1);
  }
  return result;
}

}  // namespace tovrek
