// Views of bytes, and the numbers in them that are stored with the most significant byte first.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tovrek {

inline std::string_view asText(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Whether [offset, offset + size) lies inside `bytes`; safe for any numbers.
inline bool holds(std::string_view bytes, uint64_t offset, uint64_t size) {
  return size <= bytes.size() && offset <= bytes.size() - size;
}

// The number at `offset`; none when it would reach past the end.
template <std::unsigned_integral T>
std::optional<T> readBig(std::string_view bytes, uint64_t offset) {
  if (!holds(bytes, offset, sizeof(T))) return std::nullopt;
  uint64_t value = 0;
  for (const char byte : bytes.substr(offset, sizeof(T))) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return static_cast<T>(value);
}
inline std::optional<uint32_t> readBig32(std::string_view bytes, uint64_t offset) {
  return readBig<uint32_t>(bytes, offset);
}
inline std::optional<uint64_t> readBig64(std::string_view bytes, uint64_t offset) {
  return readBig<uint64_t>(bytes, offset);
}

template <std::unsigned_integral T>
void appendBig(std::string* bytes, T value) {
  for (size_t i = sizeof(T); i-- > 0;) bytes->push_back(static_cast<char>(value >> (8 * i)));
}
inline void appendBig32(std::string* bytes, uint32_t value) {
  appendBig(bytes, value);
}
inline void appendBig64(std::string* bytes, uint64_t value) {
  appendBig(bytes, value);
}

// `value` rounded up to a multiple of `step`, which is a power of two.
constexpr uint64_t alignUp(uint64_t value, uint64_t step) {
  return (value + step - 1) & ~(step - 1);
}

}  // namespace tovrek
