#include "signing/bytes.h"

#include <cctype>

namespace tovrek::signing {
namespace {

template <class T>
std::optional<T> readBig(std::string_view bytes, uint64_t offset) {
  if (!holds(bytes, offset, sizeof(T))) return std::nullopt;
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>((value << 8) | static_cast<unsigned char>(bytes[offset + i]));
  }
  return value;
}

template <class T>
void appendBig(std::string* bytes, T value) {
  for (size_t i = sizeof(T); i-- > 0;) bytes->push_back(static_cast<char>(value >> (8 * i)));
}

int hexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(digit)));
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::optional<uint32_t> readBig32(std::string_view bytes, uint64_t offset) {
  return readBig<uint32_t>(bytes, offset);
}
std::optional<uint64_t> readBig64(std::string_view bytes, uint64_t offset) {
  return readBig<uint64_t>(bytes, offset);
}
void appendBig32(std::string* bytes, uint32_t value) {
  appendBig(bytes, value);
}
void appendBig64(std::string* bytes, uint64_t value) {
  appendBig(bytes, value);
}

std::optional<std::string> bytesFromHex(std::string_view digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    const int high = hexDigit(digits[i]);
    const int low = hexDigit(digits[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

}  // namespace tovrek::signing
