// Variable-length numbers of the loader information (LEB128): seven bits to a byte, lowest
// first, the high bit set on all bytes but the last.
#pragma once

#include <cstdint>

namespace tovrek::macho {

enum class Leb128 { kRead, kCutOff, kTooBig };

// Read one number before `end` and move the cursor behind it. Otherwise `value` is untouched, and
// the cursor at the byte that was too many. kTooBig: the number does not fit in 64 bits.
Leb128 readUleb128(const uint8_t*& cursor, const uint8_t* end, uint64_t* value);
Leb128 readSleb128(const uint8_t*& cursor, const uint8_t* end, int64_t* value);

}  // namespace tovrek::macho
