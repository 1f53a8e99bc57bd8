// What XML can hold of arbitrary bytes. Does without libxml2: programs that write nothing but
// property lists would load it for this alone.
#include <cstdint>

#include "formats/XmlDocument.h"
#include "host/utf8.h"

namespace tovrek {
namespace {

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
