// The records of a zip archive, as PKWARE's APPNOTE describes them: numbers are little-endian,
// offsets below are from the start of each record.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tovrek::archive {

using Bytes = std::span<const std::byte>;

// The same bytes in either form.
inline std::string_view asText(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
inline Bytes asBytes(std::string_view text) {
  return std::as_bytes(std::span(text));
}

inline constexpr uint32_t kLocalHeader = 0x04034b50;
inline constexpr uint32_t kCentralHeader = 0x02014b50;
inline constexpr uint32_t kEndRecord = 0x06054b50;
inline constexpr uint32_t kZip64EndRecord = 0x06064b50;
inline constexpr uint32_t kZip64Locator = 0x07064b50;

inline constexpr size_t kLocalHeaderSize = 30;
inline constexpr size_t kCentralHeaderSize = 46;
inline constexpr size_t kEndRecordSize = 22;
inline constexpr size_t kZip64EndRecordSize = 56;
inline constexpr size_t kZip64LocatorSize = 20;

inline constexpr uint16_t kZip64Extra = 0x0001;
inline constexpr uint16_t kTimeExtra = 0x5455;

inline constexpr uint16_t kStored = 0;
inline constexpr uint16_t kDeflated = 8;
inline constexpr uint16_t kBzip2 = 12;

inline constexpr uint16_t kFlagEncrypted = 1U << 0;
inline constexpr uint16_t kFlagStrongEncryption = 1U << 6;
inline constexpr uint16_t kFlagUtf8 = 1U << 11;
inline constexpr uint16_t kFlagMaskedHeaders = 1U << 13;

// What the upper half of an entry's attributes tells, where a Unix-like system made it.
inline constexpr uint32_t kUnixTypeMask = 0170000;
inline constexpr uint32_t kUnixLink = 0120000;

// "Look into the Zip64 fields" in a 16- or 32-bit field.
inline constexpr uint16_t kSee64Short = 0xffff;
inline constexpr uint32_t kSee64 = 0xffffffff;

// Reads a number; the caller has checked that it lies inside.
template <std::unsigned_integral T>
T numberAt(Bytes bytes, size_t offset) {
  uint64_t value = 0;
  for (size_t i = sizeof(T); i-- > 0;)
    value = value << 8 | std::to_integer<uint64_t>(bytes[offset + i]);
  return static_cast<T>(value);
}

template <std::unsigned_integral T>
void appendNumber(std::string* out, T value) {
  for (size_t i = 0; i < sizeof(T); ++i)
    out->push_back(static_cast<char>(uint64_t{value} >> (8 * i)));
}

}  // namespace tovrek::archive
