#include "programs/otool/bind_names.h"

#include <algorithm>

#include "engine/engine_text.h"
#include "engine/leb128.h"

namespace tovrek::otool {
namespace {

enum Opcode : uint8_t {
  kDone = 0x00,
  kSetOrdinal = 0x10,
  kSetOrdinalUleb = 0x20,
  kSetSpecialOrdinal = 0x30,
  kSetSymbol = 0x40,
  kSetType = 0x50,
  kSetAddend = 0x60,
  kSetSegmentAndOffset = 0x70,
  kAddAddress = 0x80,
  kBind = 0x90,
  kBindAddAddress = 0xa0,
  kBindAddScaled = 0xb0,
  kBindTimesSkipping = 0xc0,
  kThreaded = 0xd0,
};

class Machine {
 public:
  Machine(macho::ByteView opcodes, std::span<const uint64_t> segments, uint32_t pointerSize,
          uint64_t limit, BindNames* out)
      : segments_(segments), pointerSize_(pointerSize), limit_(limit), out_(out) {
    const void* start = opcodes.bytes().data();
    cursor_ = static_cast<const uint8_t*>(start);
    end_ = cursor_ + opcodes.size();
  }

  // Throws EngineText at a number that is cut off.
  void run() {
    while (cursor_ < end_) {
      const uint8_t byte = *cursor_++;
      if (!step(byte & 0xf0, byte & 0x0f)) return;
    }
  }

 private:
  uint64_t number() { return mach_o::trie::read_uleb128(cursor_, end_); }

  // Notes `count` places, `stride` bytes apart.
  bool bind(uint64_t count, uint64_t stride) {
    for (uint64_t i = 0; i < count; ++i) {
      auto& ordinals = out_->ordinals;
      if (out_->places.size() + ordinals.size() >= limit_) return false;
      if (out_->isThreaded) {
        ordinals.push_back(name_);
      } else {
        out_->places.emplace_back(address_, name_);
      }
      address_ += stride;
    }
    return true;
  }

  bool step(uint8_t opcode, uint8_t small) {
    switch (opcode) {
      case kDone:
      case kSetOrdinal:
      case kSetSpecialOrdinal:
      case kSetType:
        return opcode != kDone;
      case kSetOrdinalUleb:
        number();
        return true;
      case kSetAddend:
        read_sleb128(cursor_, end_);
        return true;
      case kSetSymbol:
        return readName();
      case kSetSegmentAndOffset:
        if (small >= segments_.size()) return false;
        address_ = segments_[small] + number();
        return true;
      case kAddAddress:
        address_ += number();
        return true;
      default:
        return bindStep(opcode, small);
    }
  }

  bool bindStep(uint8_t opcode, uint8_t small) {
    switch (opcode) {
      case kBind:
        return bind(1, pointerSize_);
      case kBindAddAddress:
        return bind(1, pointerSize_ + number());
      case kBindAddScaled:
        return bind(1, pointerSize_ + uint64_t{small} * pointerSize_);
      case kBindTimesSkipping: {
        const uint64_t count = number();
        return bind(count, pointerSize_ + number());
      }
      case kThreaded:
        out_->isThreaded = true;
        if (small == 0) number();  // the size of the table
        return true;
      default:
        return false;
    }
  }

  bool readName() {
    const uint8_t* nul = std::find(cursor_, end_, uint8_t{0});
    if (nul == end_) return false;
    const void* start = cursor_;
    name_ = {static_cast<const char*>(start), static_cast<size_t>(nul - cursor_)};
    cursor_ = nul + 1;
    return true;
  }

  std::span<const uint64_t> segments_;
  uint32_t pointerSize_;
  uint64_t limit_;
  BindNames* out_;
  const uint8_t* cursor_;
  const uint8_t* end_;
  uint64_t address_ = 0;
  std::string_view name_;
};

}  // namespace

BindNames readBindNames(macho::ByteView opcodes, std::span<const uint64_t> segmentAddresses,
                        uint32_t pointerSize, uint64_t limit) {
  BindNames names;
  try {
    Machine(opcodes, segmentAddresses, pointerSize, limit, &names).run();
  } catch (const macho::EngineText&) {
    // What came before the damage still holds.
  }
  std::ranges::stable_sort(names.places, {}, &std::pair<uint64_t, std::string_view>::first);
  return names;
}

}  // namespace tovrek::otool
