#include "engine/dyld_opcodes.h"

#include "engine/MachORebuildErrors.h"
#include "engine/engine_text.h"
#include "engine/leb128.h"

namespace tovrek::macho {
namespace {

enum RebaseOpcode : uint8_t {
  REBASE_DONE = 0x00,
  REBASE_SET_TYPE_IMM = 0x10,
  REBASE_SET_SEGMENT_AND_OFFSET_ULEB = 0x20,
  REBASE_ADD_ADDR_ULEB = 0x30,
  REBASE_ADD_ADDR_IMM_SCALED = 0x40,
  REBASE_DO_IMM_TIMES = 0x50,
  REBASE_DO_ULEB_TIMES = 0x60,
  REBASE_DO_ADD_ADDR_ULEB = 0x70,
  REBASE_DO_ULEB_TIMES_SKIPPING_ULEB = 0x80,
};

enum BindOpcode : uint8_t {
  BIND_DONE = 0x00,
  BIND_SET_DYLIB_ORDINAL_IMM = 0x10,
  BIND_SET_DYLIB_ORDINAL_ULEB = 0x20,
  BIND_SET_DYLIB_SPECIAL_IMM = 0x30,
  BIND_SET_SYMBOL_TRAILING_FLAGS_IMM = 0x40,
  BIND_SET_TYPE_IMM = 0x50,
  BIND_SET_ADDEND_SLEB = 0x60,
  BIND_SET_SEGMENT_AND_OFFSET_ULEB = 0x70,
  BIND_ADD_ADDR_ULEB = 0x80,
  BIND_DO = 0x90,
  BIND_DO_ADD_ADDR_ULEB = 0xa0,
  BIND_DO_ADD_ADDR_IMM_SCALED = 0xb0,
  BIND_DO_ULEB_TIMES_SKIPPING_ULEB = 0xc0,
};

// What both machines share: a position in the stream and one in the segments.
class OpcodeMachine {
 public:
  OpcodeMachine(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                const SiteRunVisitor& visit)
      : segmentCount_(segmentCount), pointerSize_(pointerSize), visit_(visit) {
    const void* start = opcodes.bytes().data();
    cursor_ = static_cast<const uint8_t*>(start);
    end_ = cursor_ + opcodes.size();
  }

  // The next code, with its upper and lower half apart.
  bool next(uint8_t* opcode, uint8_t* immediate) {
    if (cursor_ == end_) return false;
    *opcode = *cursor_ & 0xf0;
    *immediate = *cursor_ & 0x0f;
    ++cursor_;
    return true;
  }

  uint64_t uleb() { return mach_o::trie::read_uleb128(cursor_, end_); }
  void sleb() { read_sleb128(cursor_, end_); }
  void skipName() {
    while (cursor_ != end_ && *cursor_ != 0) ++cursor_;
    if (cursor_ != end_) ++cursor_;
  }

  void setSegment(uint8_t segment) {
    if (segment >= segmentCount_) throw MachORebuildErrors::kOpcodeSegmentIndex;
    segment_ = segment;
    offset_ = uleb();
  }
  // Offsets wrap: distances backwards are written as large numbers.
  void advance(uint64_t distance) { offset_ += distance; }
  void visitRun(uint64_t count, uint64_t skip) {
    if (segment_ >= segmentCount_) throw MachORebuildErrors::kOpcodeSegmentIndex;
    const uint64_t stride = pointerSize_ + skip;
    visit_({segment_, offset_, count, stride});
    offset_ += count * stride;
  }
  uint32_t pointerSize() const { return pointerSize_; }

 private:
  const uint8_t* cursor_;
  const uint8_t* end_;
  uint32_t segmentCount_;
  uint32_t pointerSize_;
  const SiteRunVisitor& visit_;
  uint32_t segment_ = 0;
  uint64_t offset_ = 0;
};

}  // namespace

void walkRebaseOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                       const SiteRunVisitor& visit) {
  OpcodeMachine machine(opcodes, segmentCount, pointerSize, visit);
  uint8_t opcode = 0, immediate = 0;
  while (machine.next(&opcode, &immediate)) {
    switch (opcode) {
      case REBASE_DONE:
        return;
      case REBASE_SET_TYPE_IMM:
        break;
      case REBASE_SET_SEGMENT_AND_OFFSET_ULEB:
        machine.setSegment(immediate);
        break;
      case REBASE_ADD_ADDR_ULEB:
        machine.advance(machine.uleb());
        break;
      case REBASE_ADD_ADDR_IMM_SCALED:
        machine.advance(uint64_t{immediate} * pointerSize);
        break;
      case REBASE_DO_IMM_TIMES:
        machine.visitRun(immediate, 0);
        break;
      case REBASE_DO_ULEB_TIMES:
        machine.visitRun(machine.uleb(), 0);
        break;
      case REBASE_DO_ADD_ADDR_ULEB:
        machine.visitRun(1, machine.uleb());
        break;
      case REBASE_DO_ULEB_TIMES_SKIPPING_ULEB: {
        const uint64_t count = machine.uleb();
        machine.visitRun(count, machine.uleb());
        break;
      }
      default:
        throwf("bad rebase opcode 0x{:02X}", opcode);
    }
  }
}

void walkBindOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                     const SiteRunVisitor& visit) {
  OpcodeMachine machine(opcodes, segmentCount, pointerSize, visit);
  uint8_t opcode = 0, immediate = 0;
  while (machine.next(&opcode, &immediate)) {
    switch (opcode) {
      case BIND_DONE:
        return;
      case BIND_SET_DYLIB_ORDINAL_IMM:
      case BIND_SET_DYLIB_SPECIAL_IMM:
      case BIND_SET_TYPE_IMM:
        break;
      case BIND_SET_DYLIB_ORDINAL_ULEB:
        machine.uleb();
        break;
      case BIND_SET_SYMBOL_TRAILING_FLAGS_IMM:
        machine.skipName();
        break;
      case BIND_SET_ADDEND_SLEB:
        machine.sleb();
        break;
      case BIND_SET_SEGMENT_AND_OFFSET_ULEB:
        machine.setSegment(immediate);
        break;
      case BIND_ADD_ADDR_ULEB:
        machine.advance(machine.uleb());
        break;
      case BIND_DO:
        machine.visitRun(1, 0);
        break;
      case BIND_DO_ADD_ADDR_ULEB:
        machine.visitRun(1, machine.uleb());
        break;
      case BIND_DO_ADD_ADDR_IMM_SCALED:
        machine.visitRun(1, uint64_t{immediate} * pointerSize);
        break;
      case BIND_DO_ULEB_TIMES_SKIPPING_ULEB: {
        const uint64_t count = machine.uleb();
        machine.visitRun(count, machine.uleb());
        break;
      }
      default:
        throwf("bad bind opcode 0x{:02X}", opcode);
    }
  }
}

}  // namespace tovrek::macho
