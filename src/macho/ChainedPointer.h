// One pointer as chained fix-ups store it, after the published <mach-o/fixup-chains.h> format: the
// bits tell what the loader puts there and how far the next such pointer is.
#pragma once

#include <cstdint>
#include <optional>

#include "macho/layout.h"

namespace tovrek::macho {

struct ChainedPointer {
  // A bind takes the import `ordinal` plus `addend`; a rebase goes to `target` in this image.
  bool isBind = false;
  bool isAuthenticated = false;
  uint32_t ordinal = 0;
  int64_t addend = 0;
  // An address as linked, or the distance from the start of the image.
  uint64_t target = 0;
  bool targetIsOffset = false;
  uint8_t high8 = 0;  // tag in the highest byte of the address
  // Bytes to the next pointer of the chain; 0 at its end.
  uint32_t next = 0;
};

// Bytes of one pointer of the format: 4 or 8; 0 for a format that is not known.
uint32_t chainedPointerSize(uint16_t format);

// None for a format that is not known. A pointer of 4 bytes comes in the low half of `raw`.
std::optional<ChainedPointer> decodeChainedPointer(uint16_t format, uint64_t raw);

}  // namespace tovrek::macho
