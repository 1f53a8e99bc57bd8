#include "formats/base64.h"

#include <cstdint>

namespace tovrek {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int digitValue(char digit) {
  if (digit >= 'A' && digit <= 'Z') return digit - 'A';
  if (digit >= 'a' && digit <= 'z') return digit - 'a' + 26;
  if (digit >= '0' && digit <= '9') return digit - '0' + 52;
  if (digit == '+') return 62;
  return digit == '/' ? 63 : -1;
}

}  // namespace

std::string base64Of(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const std::string_view group = bytes.substr(at, 3);
    uint32_t bits = 0;
    for (size_t i = 0; i < 3; i++) {
      bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
    }
    for (size_t i = 0; i < 4; i++) {
      text.push_back(i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 63] : '=');
    }
  }
  return text;
}

std::optional<std::string> bytesFromBase64(std::string_view digits) {
  if (digits.size() % 4 != 0) return std::nullopt;
  for (int padding = 0; padding < 2 && digits.ends_with('='); padding++) digits.remove_suffix(1);
  std::string bytes(digits.size() * 3 / 4, '\0');
  char* next = bytes.data();
  uint32_t bits = 0;
  int count = 0;
  for (const char digit : digits) {
    const int value = digitValue(digit);
    if (value < 0) return std::nullopt;
    bits = bits << 6 | static_cast<uint32_t>(value);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    *next++ = static_cast<char>(bits >> count);
    bits &= (1U << count) - 1;
  }
  return bytes;
}

}  // namespace tovrek
