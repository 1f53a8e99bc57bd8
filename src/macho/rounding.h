// Arithmetic over file offsets and addresses.
#pragma once

#include <cstdint>

#include "host/bytes.h"

namespace tovrek::macho {

// The next multiple of `alignment`, a power of two, at or above `value`.
constexpr uint64_t ullRoundTo(uint64_t value, uint64_t alignment) {
  return alignUp(value, alignment);
}

// The end of a range, held at the largest number instead of wrapping round.
constexpr uint64_t endOf(uint64_t start, uint64_t size) {
  return size > UINT64_MAX - start ? UINT64_MAX : start + size;
}

// Whether [start, start + size) lies inside [outerStart, outerStart + outerSize).
constexpr bool liesInside(uint64_t start, uint64_t size, uint64_t outerStart, uint64_t outerSize) {
  return start >= outerStart && size <= outerSize && start - outerStart <= outerSize - size;
}

// Whether the one address lies in [start, start + size).
constexpr bool isInside(uint64_t value, uint64_t start, uint64_t size) {
  return value >= start && value - start < size;
}

}  // namespace tovrek::macho
