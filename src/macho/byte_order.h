// Integers exactly as a file holds them.
#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>

namespace tovrek::macho {

struct BigEndian {
  static constexpr bool kNative = std::endian::native == std::endian::big;
};
struct LittleEndian {
  static constexpr bool kNative = std::endian::native == std::endian::little;
};

template <std::unsigned_integral T>
constexpr T swapBytes(T value) {
  T result = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    result = static_cast<T>((static_cast<uint64_t>(result) << 8) | (value & 0xff));
    value = static_cast<T>(static_cast<uint64_t>(value) >> 8);
  }
  return result;
}

// Bytes only, so records made of these have alignment 1 and no padding and may lie anywhere.
// Read into a named integer (`uint32_t n = header.ncmds`); `auto` would copy the stored form.
template <std::unsigned_integral T, class Order>
class Stored {
 public:
  constexpr Stored() = default;
  constexpr Stored(T value)  // NOLINT(google-explicit-constructor): stands for the integer
      : bytes_(std::bit_cast<Bytes>(Order::kNative ? value : swapBytes(value))) {}
  constexpr operator T() const {  // NOLINT(google-explicit-constructor)
    T value = std::bit_cast<T>(bytes_);
    return Order::kNative ? value : swapBytes(value);
  }

 private:
  using Bytes = std::array<std::byte, sizeof(T)>;
  Bytes bytes_{};
};

}  // namespace tovrek::macho
