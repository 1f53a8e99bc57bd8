#include "host/printable.h"

#include <cstdint>

namespace tovrek {
namespace {

// The length of the character at the start of `text` that is not to be shown as it is; 0 for one
// that may.
size_t unprintableLength(std::string_view text) {
  const auto at = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : 0; };
  if (at(0) < 0x20 || at(0) == 0x7f) return 1;
  if (at(0) == 0xc2 && at(1) >= 0x80 && at(1) <= 0x9f) return 2;
  if (at(0) != 0xe2) return 0;
  // U+200E, U+200F, U+2028 to U+202E, U+2066 to U+2069.
  const bool first =
      at(1) == 0x80 && (at(2) == 0x8e || at(2) == 0x8f || (at(2) >= 0xa8 && at(2) <= 0xae));
  return first || (at(1) == 0x81 && at(2) >= 0xa6 && at(2) <= 0xa9) ? 3 : 0;
}

std::string escaped(std::string_view text, std::string_view kept) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  size_t taken = 0;  // bytes of the text that the result shows
  for (size_t i = 0; i < text.size();) {
    const bool plain = (text[i] >= ' ' && text[i] <= '~') || kept.find(text[i]) != kept.npos;
    const size_t length = plain ? 0 : unprintableLength(text.substr(i));
    if (length == 0) {
      ++i;
      continue;
    }
    result.append(text, taken, i - taken);
    for (const char c : text.substr(i, length)) {
      const auto byte = static_cast<uint8_t>(c);
      result.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    }
    taken = i += length;
  }
  return result.append(text, taken);
}

}  // namespace

std::string printable(std::string_view text) {
  return escaped(text, "");
}

std::string printableLines(std::string_view text) {
  return escaped(text, "\n\t");
}

std::string printable(std::string_view text, LineBreaks breaks) {
  if (breaks == LineBreaks::kKept) return printableLines(text);
  const size_t end = text.find_last_not_of('\n') + 1;
  return escaped(text.substr(0, end), "\t").append(text.substr(end));
}

}  // namespace tovrek
