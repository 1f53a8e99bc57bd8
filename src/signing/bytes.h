// Byte strings of signature data. All numbers inside signature blobs are big-endian, whatever
// the order of the Mach-O file around them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tovrek::signing {

inline std::string_view asText(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline std::span<const std::byte> asBytes(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

// Whether [offset, offset + size) lies inside `bytes`; safe for any numbers.
inline bool holds(std::string_view bytes, uint64_t offset, uint64_t size) {
  return size <= bytes.size() && offset <= bytes.size() - size;
}

// The number at `offset`; none when it would reach past the end.
std::optional<uint32_t> readBig32(std::string_view bytes, uint64_t offset);
std::optional<uint64_t> readBig64(std::string_view bytes, uint64_t offset);

void appendBig32(std::string* bytes, uint32_t value);
void appendBig64(std::string* bytes, uint64_t value);

// `value` rounded up to a multiple of `step`, which is a power of two.
constexpr uint64_t alignUp(uint64_t value, uint64_t step) {
  return (value + step - 1) & ~(step - 1);
}

// The bytes of an even run of hexadecimal digits; none for anything else.
std::optional<std::string> bytesFromHex(std::string_view digits);

}  // namespace tovrek::signing
