#include "macho/chain_walk.h"

#include "macho/ChainedPointer.h"
#include "macho/ChainedTables.h"
#include "macho/byte_order.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Tables = ChainedTables<LittleEndian>;

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

// The steps answer false where something leads out of its bounds.
class ChainWalker {
 public:
  ChainWalker(ByteView image, const Tables& tables, uint64_t base, const ChainedSiteVisitor& visit)
      : image_(image), tables_(tables), base_(base), visit_(visit), budget_(image.size()) {}

  bool walkSegment(const ChainedSegment& segment, const ChainedStarts& starts) {
    const SegmentChains chains{segment, starts};
    for (uint32_t page = 0; page < starts.pageCount; ++page) {
      if (!spend() || !walkPage(chains, page)) return false;
    }
    return true;
  }

 private:
  struct SegmentChains {
    const ChainedSegment& segment;
    const ChainedStarts& starts;
  };

  // Honest tables name no more pages, chains and places than the image has bytes; others could
  // name the same ones over and over.
  bool spend() { return budget_-- != 0; }

  bool walkPage(const SegmentChains& chains, uint32_t page) {
    const auto start = tables_.pageStart(chains.starts.pages, page);
    if (!start) return false;
    if (*start == DYLD_CHAINED_PTR_START_NONE) return true;
    const bool several =
        chains.starts.format == DYLD_CHAINED_PTR_32 && (*start & DYLD_CHAINED_PTR_START_MULTI) != 0;
    if (!several) return walkChain(chains, page, *start);
    for (uint32_t i = *start & ~uint32_t{DYLD_CHAINED_PTR_START_MULTI};; ++i) {
      if (!spend()) return false;
      const auto each = tables_.pageStart(chains.starts.pages, i);
      if (!each || !walkChain(chains, page, *each & ~uint32_t{DYLD_CHAINED_PTR_START_LAST})) {
        return false;
      }
      if ((*each & DYLD_CHAINED_PTR_START_LAST) != 0) return true;
    }
  }

  // A chain goes upwards and stays in its page, so it has no loops.
  bool walkChain(const SegmentChains& chains, uint32_t page, uint64_t start) {
    const uint64_t pageSize = chains.starts.pageSize;
    const uint64_t pageAddress = base_ + chains.starts.offset + page * pageSize;
    for (uint64_t at = start;;) {
      if (at >= pageSize || !spend()) return false;
      const uint64_t address = pageAddress + at;
      const auto pointer = readPointer(chains, address);
      if (!pointer) return false;
      visitPointer(chains, address, *pointer);
      if (pointer->next == 0) return true;
      at += pointer->next;
    }
  }

  std::optional<ChainedPointer> readPointer(const SegmentChains& chains, uint64_t address) const {
    const ChainedSegment& segment = chains.segment;
    const uint16_t format = chains.starts.format;
    const uint32_t size = chainedPointerSize(format);
    if (!liesInside(address, size, segment.vmaddr, segment.filesize)) return std::nullopt;
    const uint64_t place = segment.fileoff + (address - segment.vmaddr);
    Stored<uint32_t, LittleEndian> narrow;
    Stored<uint64_t, LittleEndian> wide;
    const bool read = size == 4 ? image_.read(place, &narrow) : image_.read(place, &wide);
    if (!read) return std::nullopt;
    return decodeChainedPointer(format, size == 4 ? uint64_t{narrow} : uint64_t{wide});
  }

  void visitPointer(const SegmentChains& chains, uint64_t address,
                    const ChainedPointer& pointer) const {
    if (pointer.isBind) return visit_({address, 0, true});
    // Numbers in the midst of a chain of 32 bits are told from pointers by their size.
    const bool isNumber = chains.starts.format == DYLD_CHAINED_PTR_32 &&
                          pointer.target > chains.starts.maxValidPointer;
    if (isNumber) return;
    const uint64_t target = pointer.target + (pointer.targetIsOffset ? base_ : 0);
    visit_({address, target | uint64_t{pointer.high8} << 56, false});
  }

  ByteView image_;
  const Tables& tables_;
  uint64_t base_;
  const ChainedSiteVisitor& visit_;
  uint64_t budget_;
};

}  // namespace

ChainWalk walkChains(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                     uint64_t base, const ChainedSiteVisitor& visit) {
  const Tables tables(fixups);
  if (!tables.hasHeader()) return ChainWalk::kDamaged;
  if (tables.version() != kKnownVersion) return ChainWalk::kUnknownForm;
  if (!tables.hasSegments() || tables.segmentCount() > segments.size()) return ChainWalk::kDamaged;
  ChainWalker walker(image, tables, base, visit);
  for (uint32_t i = 0; i < tables.segmentCount(); ++i) {
    const auto starts = tables.segment(i);
    if (!starts) return ChainWalk::kDamaged;
    if (!starts->any) continue;
    if (!isKnown(starts->format)) return ChainWalk::kUnknownForm;
    if (!walker.walkSegment(segments[i], *starts)) return ChainWalk::kDamaged;
  }
  return ChainWalk::kDone;
}

}  // namespace tovrek::macho
