#include "reserve/leb128.h"

#include "engine/leb128_failure.h"

namespace tovrek {
namespace {

constexpr uint8_t kMore = 0x80;
constexpr uint8_t kBits = 0x7f;
constexpr uint8_t kSign = 0x40;

}  // namespace

uint64_t mach_o::trie::read_uleb128(const uint8_t*& cursor, const uint8_t* end) {
  uint64_t value = 0;
  const auto status = macho::readUleb128(cursor, end, &value);
  if (status != macho::Leb128::kRead) macho::throwUnsignedFailure(status);
  return value;
}

uint64_t wex_read_uleb128(const uint8_t* start, const uint8_t* end) {
  return mach_o::trie::read_uleb128(start, end);
}

uint8_t write_uleb128(uint64_t value, uint8_t*& cursor) {
  for (;;) {
    uint8_t byte = value & kBits;
    value >>= 7;
    if (value != 0) byte |= kMore;
    *cursor++ = byte;
    if (value == 0) return byte;
  }
}

uint8_t wex_write_uleb128(uint64_t value, uint8_t* buffer) {
  return write_uleb128(value, buffer);
}

uint8_t write_sleb128(int64_t value, uint8_t*& cursor) {
  for (;;) {
    uint8_t byte = value & kBits;
    value >>= 7;
    const bool signBit = (byte & kSign) != 0;
    const bool done = (value == 0 && !signBit) || (value == -1 && signBit);
    if (!done) byte |= kMore;
    *cursor++ = byte;
    if (done) return byte;
  }
}

uint8_t wex_write_sleb128(int64_t value, uint8_t* buffer) {
  return write_sleb128(value, buffer);
}

int64_t read_sleb128(const uint8_t*& cursor, const uint8_t* end) {
  int64_t value = 0;
  const auto status = macho::readSleb128(cursor, end, &value);
  if (status != macho::Leb128::kRead) macho::throwSignedFailure(status);
  return value;
}

}  // namespace tovrek
