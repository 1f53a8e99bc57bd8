#include "formats/base64.h"

#include <array>
#include <cstdint>

namespace tovrek {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr uint32_t kNoDigit = 1U << 31;

// By the byte. Seals of large bundles hold thousands of digests.
constexpr std::array<uint32_t, 256> digitValues() {
  std::array<uint32_t, 256> values{};
  values.fill(kNoDigit);
  for (uint32_t i = 0; i < kDigits.size(); ++i) {
    values[static_cast<unsigned char>(kDigits[i])] = i;
  }
  return values;
}
constexpr std::array<uint32_t, 256> kValues = digitValues();

// The bits of up to four digits, as if zeros filled them up; with kNoDigit for anything else.
uint32_t bitsOf(std::string_view digits) {
  uint32_t bits = 0, unknown = 0;
  for (size_t i = 0; i < 4; ++i) {
    const uint32_t value = i < digits.size() ? kValues[static_cast<unsigned char>(digits[i])] : 0;
    unknown |= value & kNoDigit;
    bits = bits << 6 | (value & 63);
  }
  return bits | unknown;
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
  for (size_t from = 0, to = 0; from < digits.size(); from += 4) {
    const uint32_t bits = bitsOf(digits.substr(from, 4));
    if ((bits & kNoDigit) != 0) return std::nullopt;
    for (int shift = 16; shift >= 0 && to < bytes.size(); shift -= 8) {
      bytes[to++] = static_cast<char>(bits >> shift);
    }
  }
  return bytes;
}

}  // namespace tovrek
