#include "formats/WEX_Base64.h"

#include <algorithm>

#include "formats/base64.h"
#include "host/utf8.h"

namespace tovrek {
namespace {

constexpr size_t kColumns = 64;

}  // namespace

std::string WEX_Base64::encode(std::string_view text) {
  const std::string digits = encodeWithoutLinebreaks(text);
  std::string lines;
  for (size_t at = 0; at < digits.size(); at += kColumns) {
    if (at > 0) lines += "\r\n";
    lines.append(digits, at, kColumns);
  }
  return lines;
}

std::string WEX_Base64::encodeWithoutLinebreaks(std::string_view bytes) {
  return base64Of(bytes);
}

std::optional<std::string> WEX_Base64::decodeBytes(std::string_view digits) {
  return bytesFromBase64(digits);
}

std::optional<std::string> WEX_Base64::decode(std::string_view text) {
  std::string digits(text);
  std::erase_if(digits, [](char c) { return c == '\r' || c == '\n'; });
  // Senders that write "-" for "+" send ASCII only.
  const bool hadMinus = digits.find('-') != std::string::npos;
  std::replace(digits.begin(), digits.end(), '-', '+');

  std::optional<std::string> bytes = decodeBytes(digits);
  if (!bytes) return std::nullopt;
  const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
  const bool readable =
      hadMinus ? std::all_of(bytes->begin(), bytes->end(), isAscii) : isUtf8(*bytes);
  return readable ? bytes : std::nullopt;
}

}  // namespace tovrek
