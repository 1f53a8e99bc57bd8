#include "macho/chained_fixups.h"

#include "macho/MachORebuildErrors.h"
#include "macho/layout.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Word = Stored<uint32_t, LittleEndian>;
using HalfWord = Stored<uint16_t, LittleEndian>;
using LongWord = Stored<uint64_t, LittleEndian>;

struct dyld_chained_fixups_header {
  Word fixups_version, starts_offset, imports_offset, symbols_offset;
  Word imports_count, imports_format, symbols_format;
};

// The offsets of the segments' tables follow, each 0 for none, from the start of this record.
struct dyld_chained_starts_in_image {
  Word seg_count;
};

// The start of the chain of each page follows, 16 bits each.
struct dyld_chained_starts_in_segment {
  Word size;
  HalfWord page_size, pointer_format;
  LongWord segment_offset;
  Word max_valid_pointer;
  HalfWord page_count;
};
static_assert(kIsRecord<dyld_chained_fixups_header, 28>);
static_assert(kIsRecord<dyld_chained_starts_in_segment, 22>);

constexpr uint32_t kKnownVersion = 0;
constexpr uint16_t DYLD_CHAINED_PTR_START_NONE = 0xffff;
// Of 32-bit formats: the page has several chains, listed behind the pages'; the last of them.
constexpr uint16_t DYLD_CHAINED_PTR_START_MULTI = 0x8000;
constexpr uint16_t DYLD_CHAINED_PTR_START_LAST = 0x8000;

enum class Family { kArm64e, kPlain64, kPlain32 };
struct PointerFormat {
  uint16_t number;
  Family family;
  uint32_t stride;         // the unit of the distance to the next place
  bool targetsAreOffsets;  // from the Mach-O header, of pointers that are not authenticated
};
constexpr PointerFormat kFormats[] = {
    {1, Family::kArm64e, 8, false},   // DYLD_CHAINED_PTR_ARM64E
    {2, Family::kPlain64, 4, false},  // DYLD_CHAINED_PTR_64
    {3, Family::kPlain32, 4, false},  // DYLD_CHAINED_PTR_32
    {6, Family::kPlain64, 4, true},   // DYLD_CHAINED_PTR_64_OFFSET
    {7, Family::kArm64e, 4, true},    // DYLD_CHAINED_PTR_ARM64E_KERNEL
    {9, Family::kArm64e, 8, true},    // DYLD_CHAINED_PTR_ARM64E_USERLAND
    {10, Family::kArm64e, 4, false},  // DYLD_CHAINED_PTR_ARM64E_FIRMWARE
    {12, Family::kArm64e, 8, true},   // DYLD_CHAINED_PTR_ARM64E_USERLAND24
};

[[noreturn]] void refuse() {
  throw MachORebuildErrors::kUnknownCommand;
}

template <class T>
T readAt(ByteView view, uint64_t offset) {
  T record;
  if (!view.read(offset, &record)) refuse();
  return record;
}

uint64_t bits(uint64_t value, uint32_t from, uint32_t width) {
  return (value >> from) & ((uint64_t{1} << width) - 1);
}

// One stored place, taken apart.
struct Link {
  bool bound = false;
  bool isPointer = true;
  uint64_t target = 0;
  uint64_t next = 0;  // distance in bytes; 0 at the end
};

Link readArm64e(uint64_t raw, const PointerFormat& format, uint64_t base) {
  const bool authenticated = bits(raw, 63, 1) != 0;
  Link link{.bound = bits(raw, 62, 1) != 0, .next = bits(raw, 51, 11) * format.stride};
  if (authenticated) {
    link.target = base + bits(raw, 0, 32);
  } else {
    link.target = bits(raw, 0, 43) + (format.targetsAreOffsets ? base : 0);
    link.target |= bits(raw, 43, 8) << 56;
  }
  return link;
}

Link readPlain64(uint64_t raw, const PointerFormat& format, uint64_t base) {
  Link link{.bound = bits(raw, 63, 1) != 0, .next = bits(raw, 51, 12) * format.stride};
  link.target = bits(raw, 0, 36) + (format.targetsAreOffsets ? base : 0);
  link.target |= bits(raw, 36, 8) << 56;
  return link;
}

// Numbers in the midst of a chain are told from pointers by their size.
Link readPlain32(uint32_t raw, const PointerFormat& format, uint32_t maxValidPointer) {
  Link link{.bound = bits(raw, 31, 1) != 0, .next = bits(raw, 26, 5) * format.stride};
  link.target = bits(raw, 0, 26);
  link.isPointer = link.bound || link.target <= maxValidPointer;
  return link;
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
    const auto header = readAt<dyld_chained_fixups_header>(fixups_, 0);
    if (header.fixups_version != kKnownVersion) return false;
    const uint64_t starts = header.starts_offset;
    const uint32_t count = readAt<dyld_chained_starts_in_image>(fixups_, starts).seg_count;
    if (count > segments_.size()) refuse();
    for (uint32_t i = 0; i < count; ++i) {
      const uint64_t place = starts + sizeof(dyld_chained_starts_in_image) + i * sizeof(Word);
      const uint32_t offset = readAt<Word>(fixups_, place);
      if (offset != 0 && !walkSegment(segments_[i], starts + offset)) return false;
    }
    return true;
  }

 private:
  struct SegmentChains {
    const ChainedSegment& segment;
    dyld_chained_starts_in_segment record;
    const PointerFormat& format;
    uint64_t startsOffset;  // of the list of page starts
  };

  // Honest tables name no more pages, chains and places than the image has bytes; others could
  // name the same ones over and over.
  void spend() {
    if (budget_-- == 0) refuse();
  }

  bool walkSegment(const ChainedSegment& segment, uint64_t offset) {
    const auto record = readAt<dyld_chained_starts_in_segment>(fixups_, offset);
    const PointerFormat* format = nullptr;
    for (const PointerFormat& known : kFormats) {
      if (known.number == record.pointer_format) format = &known;
    }
    if (format == nullptr) return false;
    const SegmentChains chains{segment, record, *format, offset + sizeof(record)};
    for (uint32_t page = 0; page < record.page_count; ++page) {
      spend();
      walkPage(chains, page);
    }
    return true;
  }

  void walkPage(const SegmentChains& chains, uint32_t page) {
    const uint16_t start = startAt(chains, page);
    if (start == DYLD_CHAINED_PTR_START_NONE) return;
    const bool several =
        chains.format.family == Family::kPlain32 && (start & DYLD_CHAINED_PTR_START_MULTI) != 0;
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
      const Link link = readLink(chains, address);
      if (link.isPointer) visit_({address, link.bound ? 0 : link.target, link.bound});
      if (link.next == 0) return;
      at += link.next;
    }
  }

  Link readLink(const SegmentChains& chains, uint64_t address) const {
    const ChainedSegment& segment = chains.segment;
    const uint64_t width = chains.format.family == Family::kPlain32 ? 4 : 8;
    if (!liesInside(address, width, segment.vmaddr, segment.filesize)) refuse();
    const uint64_t place = segment.fileoff + (address - segment.vmaddr);
    switch (chains.format.family) {
      case Family::kArm64e:
        return readArm64e(readAt<LongWord>(image_, place), chains.format, base_);
      case Family::kPlain64:
        return readPlain64(readAt<LongWord>(image_, place), chains.format, base_);
      case Family::kPlain32:
        break;
    }
    return readPlain32(readAt<Word>(image_, place), chains.format, chains.record.max_valid_pointer);
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
