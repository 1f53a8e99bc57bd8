#include "macho/ChainedPointer.h"

namespace tovrek::macho {
namespace {

class Bits {
 public:
  explicit Bits(uint64_t raw) : raw_(raw) {}

  uint64_t at(uint32_t low, uint32_t width) const {
    return raw_ >> low & ((uint64_t{1} << width) - 1);
  }
  uint32_t word(uint32_t low, uint32_t width) const {
    return static_cast<uint32_t>(at(low, width));
  }
  bool flag(uint32_t bit) const { return at(bit, 1) != 0; }
  int64_t signedAt(uint32_t low, uint32_t width) const {
    const uint64_t sign = uint64_t{1} << (width - 1);
    return static_cast<int64_t>(at(low, width) ^ sign) - static_cast<int64_t>(sign);
  }

 private:
  uint64_t raw_;
};

// Formats with a bit that tells binds from rebases, and the width of their fields.
struct PlainFields {
  uint32_t bindBit, nextWidth;  // the distance lies below that bit
  uint32_t ordinalWidth, addendWidth;
  uint32_t targetWidth, highWidth;
};
constexpr PlainFields kFields64{63, 12, 24, 8, 36, 8};
constexpr PlainFields kFields32{31, 5, 20, 6, 26, 0};

ChainedPointer decodePlain(Bits bits, const PlainFields& fields, bool targetIsOffset) {
  ChainedPointer pointer;
  pointer.next = bits.word(fields.bindBit - fields.nextWidth, fields.nextWidth) * 4;
  pointer.isBind = bits.flag(fields.bindBit);
  if (pointer.isBind) {
    pointer.ordinal = bits.word(0, fields.ordinalWidth);
    pointer.addend = static_cast<int64_t>(bits.at(fields.ordinalWidth, fields.addendWidth));
  } else {
    pointer.target = bits.at(0, fields.targetWidth);
    pointer.high8 = static_cast<uint8_t>(bits.at(fields.targetWidth, fields.highWidth));
    pointer.targetIsOffset = targetIsOffset;
  }
  return pointer;
}

// `stride` is the unit of the distances, `ordinalWidth` the bits of an import's number.
ChainedPointer decodeArm64e(Bits bits, bool targetIsOffset, uint32_t stride,
                            uint32_t ordinalWidth) {
  ChainedPointer pointer;
  pointer.isAuthenticated = bits.flag(63);
  pointer.isBind = bits.flag(62);
  pointer.next = bits.word(51, 11) * stride;
  if (pointer.isBind) {
    pointer.ordinal = bits.word(0, ordinalWidth);
    if (!pointer.isAuthenticated) pointer.addend = bits.signedAt(32, 19);
  } else if (pointer.isAuthenticated) {
    pointer.target = bits.at(0, 32);
    pointer.targetIsOffset = true;
  } else {
    pointer.target = bits.at(0, 43);
    pointer.high8 = static_cast<uint8_t>(bits.at(43, 8));
    pointer.targetIsOffset = targetIsOffset;
  }
  return pointer;
}

ChainedPointer decodeRebase32(Bits bits, uint32_t targetWidth, bool targetIsOffset) {
  ChainedPointer pointer;
  pointer.target = bits.at(0, targetWidth);
  pointer.targetIsOffset = targetIsOffset;
  pointer.next = bits.word(targetWidth, 32 - targetWidth) * 4;
  return pointer;
}

ChainedPointer decodeKernelCache(Bits bits, uint32_t stride) {
  ChainedPointer pointer;
  pointer.target = bits.at(0, 30);
  pointer.targetIsOffset = true;
  pointer.isAuthenticated = bits.flag(63);
  pointer.next = bits.word(51, 12) * stride;
  return pointer;
}

}  // namespace

uint32_t chainedPointerSize(uint16_t format) {
  switch (format) {
    case DYLD_CHAINED_PTR_32:
    case DYLD_CHAINED_PTR_32_CACHE:
    case DYLD_CHAINED_PTR_32_FIRMWARE:
      return 4;
    default:
      return format >= DYLD_CHAINED_PTR_ARM64E && format <= DYLD_CHAINED_PTR_ARM64E_USERLAND24 ? 8
                                                                                               : 0;
  }
}

std::optional<ChainedPointer> decodeChainedPointer(uint16_t format, uint64_t raw) {
  const Bits bits(raw);
  switch (format) {
    case DYLD_CHAINED_PTR_ARM64E:
      return decodeArm64e(bits, false, 8, 16);
    case DYLD_CHAINED_PTR_ARM64E_KERNEL:
      return decodeArm64e(bits, true, 4, 16);
    case DYLD_CHAINED_PTR_ARM64E_USERLAND:
      return decodeArm64e(bits, true, 8, 16);
    case DYLD_CHAINED_PTR_ARM64E_FIRMWARE:
      return decodeArm64e(bits, false, 4, 16);
    case DYLD_CHAINED_PTR_ARM64E_USERLAND24:
      return decodeArm64e(bits, true, 8, 24);
    case DYLD_CHAINED_PTR_64:
      return decodePlain(bits, kFields64, false);
    case DYLD_CHAINED_PTR_64_OFFSET:
      return decodePlain(bits, kFields64, true);
    case DYLD_CHAINED_PTR_32:
      return decodePlain(bits, kFields32, false);
    case DYLD_CHAINED_PTR_32_CACHE:
      return decodeRebase32(bits, 30, true);
    case DYLD_CHAINED_PTR_32_FIRMWARE:
      return decodeRebase32(bits, 26, false);
    case DYLD_CHAINED_PTR_64_KERNEL_CACHE:
      return decodeKernelCache(bits, 4);
    case DYLD_CHAINED_PTR_X86_64_KERNEL_CACHE:
      return decodeKernelCache(bits, 1);
    default:
      return std::nullopt;
  }
}

}  // namespace tovrek::macho
