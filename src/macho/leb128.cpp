#include "macho/leb128.h"

namespace tovrek::macho {
namespace {

constexpr uint8_t kMore = 0x80;
constexpr uint8_t kBits = 0x7f;
constexpr uint8_t kSign = 0x40;

}  // namespace

Leb128 readUleb128(const uint8_t*& cursor, const uint8_t* end, uint64_t* value) {
  uint64_t result = 0;
  for (unsigned shift = 0;; shift += 7) {
    if (cursor >= end) return Leb128::kCutOff;
    const uint64_t part = *cursor & kBits;
    if (shift >= 64 || (part << shift) >> shift != part) return Leb128::kTooBig;
    result |= part << shift;
    if ((*cursor++ & kMore) == 0) break;
  }
  *value = result;
  return Leb128::kRead;
}

Leb128 readSleb128(const uint8_t*& cursor, const uint8_t* end, int64_t* value) {
  uint64_t result = 0;
  unsigned shift = 0;
  for (uint8_t byte = kMore; (byte & kMore) != 0; shift += 7) {
    if (cursor >= end) return Leb128::kCutOff;
    if (shift >= 64) return Leb128::kTooBig;
    byte = *cursor++;
    result |= uint64_t{static_cast<uint8_t>(byte & kBits)} << shift;
    if ((byte & (kMore | kSign)) == kSign && shift + 7 < 64) {
      result |= ~uint64_t{0} << (shift + 7);
    }
  }
  *value = static_cast<int64_t>(result);
  return Leb128::kRead;
}

}  // namespace tovrek::macho
