#include "formats/xml_limits.h"

#include <fmt/format.h>

#include <algorithm>

#include "formats/xml_encoding.h"
#include "formats/xml_guard.h"

namespace tovrek {
namespace {

// Whether every "<" that the parser sees is that byte, and the other way round.
bool isReadByBytes(std::string_view bytes) {
  const std::string_view head = bytes.substr(0, 4);
  if (head.find('\0') != std::string_view::npos) return false;
  if (head.starts_with("\xFE\xFF") || head.starts_with("\xFF\xFE") ||
      head.starts_with("\x4C\x6F")) {
    return false;
  }
  const std::string encoding = declaredEncoding(bytes);
  return encoding.empty() ||
         std::ranges::any_of(
             std::initializer_list<std::string_view>{"utf-8", "utf8", "us-ascii", "ascii",
                                                     "iso-8859-", "windows-125"},
             [&](auto name) { return encoding.starts_with(name); });
}

}  // namespace

std::string excessOfXml(std::string_view bytes, const Limits& limits) {
  const bool byBytes = isReadByBytes(bytes);
  const uint64_t mostBytes =
      byBytes ? limits.xmlBytes : std::min(limits.xmlBytes, limits.xmlWideBytes);
  if (bytes.size() > mostBytes) {
    return fmt::format("it has {} bytes, beyond the limit of {}", bytes.size(), mostBytes);
  }
  // More are seen where a text holds "<", fewer never, but for encodings that are short by now.
  if (static_cast<size_t>(std::ranges::count(bytes, '<')) > limits.xmlTags) {
    return fmt::format("it has more than {} tags", limits.xmlTags);
  }
  return markupFault(bytes, limits);
}

}  // namespace tovrek
