#include "engine/chained_fixups.h"

#include "engine/MachORebuildErrors.h"
#include "macho/ChainedPointer.h"
#include "macho/chained_layout.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Word = Stored<uint32_t, LittleEndian>;
using HalfWord = Stored<uint16_t, LittleEndian>;
using LongWord = Stored<uint64_t, LittleEndian>;
using Header = dyld_chained_fixups_header<LittleEndian>;
using SegmentStarts = dyld_chained_starts_in_segment<LittleEndian>;

constexpr uint32_t kKnownVersion = 0;
constexpr uint16_t DYLD_CHAINED_PTR_START_NONE = 0xffff;
// Of 32-bit formats: the page has several chains, listed behind the pages'; the last of them.
constexpr uint16_t DYLD_CHAINED_PTR_START_MULTI = 0x8000;
constexpr uint16_t DYLD_CHAINED_PTR_START_LAST = 0x8000;

// The formats of kernels and of the system's caches hold no app.
bool isKnown(uint16_t format) {
  switch (format) {
    case DYLD_CHAINED_PTR_ARM64E:
    case DYLD_CHAINED_PTR_64:
    case DYLD_CHAINED_PTR_32:
    case DYLD_CHAINED_PTR_64_OFFSET:
    case DYLD_CHAINED_PTR_ARM64E_KERNEL:
    case DYLD_CHAINED_PTR_ARM64E_USERLAND:
    case DYLD_CHAINED_PTR_ARM64E_FIRMWARE:
    case DYLD_CHAINED_PTR_ARM64E_USERLAND24:
      return true;
    default:
      return false;
  }
}

[[noreturn]] void refuse() {
  throw MachORebuildErrors::kUnknownCommand;
}

template <class T>
T readAt(ByteView view, uint64_t offset) {
  T record;
  if (!view.read(offset, &record)) refuse();
  return record;
}

class ChainWalker {
 public:
  ChainWalker(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
              uint64_t base, const ChainedSiteVisitor& visit)
      : image_(image),
        fixups_(fixups),
        segments_(segments),
        base_(base),
        visit_(visit),
        budget_(image.size()) {}

  bool walk() {
    const auto header = readAt<Header>(fixups_, 0);
    if (header.fixups_version != kKnownVersion) return false;
    const uint64_t starts = header.starts_offset;
    const uint32_t count = readAt<Word>(fixups_, starts);
    if (count > segments_.size()) refuse();
    for (uint32_t i = 0; i < count; ++i) {
      const uint64_t place = starts + (1 + uint64_t{i}) * sizeof(Word);
      const uint32_t offset = readAt<Word>(fixups_, place);
      if (offset != 0 && !walkSegment(segments_[i], starts + offset)) return false;
    }
    return true;
  }

 private:
  struct SegmentChains {
    const ChainedSegment& segment;
    SegmentStarts record;
    uint64_t startsOffset;  // of the list of page starts
  };

  // Honest tables name no more pages, chains and places than the image has bytes; others could
  // name the same ones over and over.
  void spend() {
    if (budget_-- == 0) refuse();
  }

  bool walkSegment(const ChainedSegment& segment, uint64_t offset) {
    const auto record = readAt<SegmentStarts>(fixups_, offset);
    if (!isKnown(record.pointer_format)) return false;
    const SegmentChains chains{segment, record, offset + sizeof(record)};
    for (uint32_t page = 0; page < record.page_count; ++page) {
      spend();
      walkPage(chains, page);
    }
    return true;
  }

  void walkPage(const SegmentChains& chains, uint32_t page) {
    const uint16_t start = startAt(chains, page);
    if (start == DYLD_CHAINED_PTR_START_NONE) return;
    const bool several = chains.record.pointer_format == DYLD_CHAINED_PTR_32 &&
                         (start & DYLD_CHAINED_PTR_START_MULTI) != 0;
    if (!several) return walkChain(chains, page, start);
    for (uint32_t i = start & ~uint32_t{DYLD_CHAINED_PTR_START_MULTI};; ++i) {
      spend();
      const uint16_t each = startAt(chains, i);
      walkChain(chains, page, each & ~uint32_t{DYLD_CHAINED_PTR_START_LAST});
      if ((each & DYLD_CHAINED_PTR_START_LAST) != 0) return;
    }
  }

  uint16_t startAt(const SegmentChains& chains, uint32_t index) const {
    return readAt<HalfWord>(fixups_, chains.startsOffset + uint64_t{index} * sizeof(HalfWord));
  }

  // A chain goes upwards and stays in its page, so it has no loops.
  void walkChain(const SegmentChains& chains, uint32_t page, uint64_t start) {
    const uint64_t pageSize = chains.record.page_size;
    const uint64_t pageAddress = base_ + chains.record.segment_offset + page * pageSize;
    for (uint64_t at = start;;) {
      if (at >= pageSize) refuse();
      spend();
      const uint64_t address = pageAddress + at;
      const ChainedPointer pointer = readPointer(chains, address);
      visitPointer(chains, address, pointer);
      if (pointer.next == 0) return;
      at += pointer.next;
    }
  }

  ChainedPointer readPointer(const SegmentChains& chains, uint64_t address) const {
    const ChainedSegment& segment = chains.segment;
    const uint16_t format = chains.record.pointer_format;
    const uint32_t size = chainedPointerSize(format);
    if (!liesInside(address, size, segment.vmaddr, segment.filesize)) refuse();
    const uint64_t place = segment.fileoff + (address - segment.vmaddr);
    const uint64_t raw = size == 4 ? readAt<Word>(image_, place) : readAt<LongWord>(image_, place);
    return *decodeChainedPointer(format, raw);
  }

  void visitPointer(const SegmentChains& chains, uint64_t address,
                    const ChainedPointer& pointer) const {
    if (pointer.isBind) return visit_({address, 0, true});
    // Numbers in the midst of a chain of 32 bits are told from pointers by their size.
    const bool isNumber = chains.record.pointer_format == DYLD_CHAINED_PTR_32 &&
                          pointer.target > chains.record.max_valid_pointer;
    if (isNumber) return;
    const uint64_t target = pointer.target + (pointer.targetIsOffset ? base_ : 0);
    visit_({address, target | uint64_t{pointer.high8} << 56, false});
  }

  ByteView image_, fixups_;
  std::span<const ChainedSegment> segments_;
  uint64_t base_;
  const ChainedSiteVisitor& visit_;
  uint64_t budget_;
};

}  // namespace

bool walkChainedFixups(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                       uint64_t base, const ChainedSiteVisitor& visit) {
  return ChainWalker(image, fixups, segments, base, visit).walk();
}

}  // namespace tovrek::macho
