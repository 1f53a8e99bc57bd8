#include "formats/hex.h"

namespace tovrek {
namespace {

std::string hexOf(std::string_view bytes, const char* digits) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += digits[value >> 4];
    text += digits[value & 15];
  }
  return text;
}

}  // namespace

std::string hexLower(std::string_view bytes) {
  return hexOf(bytes, "0123456789abcdef");
}
std::string hexUpper(std::string_view bytes) {
  return hexOf(bytes, "0123456789ABCDEF");
}

int hexDigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::optional<std::string> bytesFromHex(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = hexDigitValue(digits[i]);
    const int low = hexDigitValue(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

}  // namespace tovrek
