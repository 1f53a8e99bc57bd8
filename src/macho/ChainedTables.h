// The tables of chained fix-ups (LC_DYLD_CHAINED_FIXUPS), after <mach-o/fixup-chains.h>: which
// segments hold chains of which pointer format, and the names that binds refer to.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "macho/ByteView.h"
#include "macho/byte_order.h"

namespace tovrek::macho {

// Where the chains of one segment start.
struct ChainedStarts {
  bool any = false;     // false: a segment without chains, nothing else is set
  uint64_t offset = 0;  // where the segment starts after the start of the image in memory
  uint16_t format = 0;
  uint16_t pageSize = 0;
  uint16_t pageCount = 0;
  uint32_t maxValidPointer = 0;
  uint64_t pages = 0;  // in the tables: for each page 16 bits that lead to its first pointer
};

// Judges nothing; each table is read as far as it lies inside.
template <class Order>
class ChainedTables {
 public:
  ChainedTables() = default;  // no tables
  // `data` is what the command's dataoff and datasize delimit.
  explicit ChainedTables(ByteView data);

  bool hasHeader() const { return hasHeader_; }
  // Whether the number of segments can be read.
  bool hasSegments() const { return hasSegments_; }
  uint32_t version() const { return version_; }
  uint32_t segmentCount() const { return segmentCount_; }
  // In the order of the load commands; none when the entry lies outside.
  std::optional<ChainedStarts> segment(uint32_t index) const;
  // Entry `index` of the 16 bits each that start at `pages`; none outside.
  std::optional<uint16_t> pageStart(uint64_t pages, uint32_t index) const;
  // Empty for a number beyond the table, and for names in a compressed pool.
  std::string_view importName(uint32_t ordinal) const;

 private:
  ByteView data_, names_;
  bool hasHeader_ = false, hasSegments_ = false;
  uint32_t version_ = 0;
  uint32_t importsOffset_ = 0, importsCount_ = 0, importsFormat_ = 0;
  uint32_t startsOffset_ = 0, segmentCount_ = 0;
};

}  // namespace tovrek::macho
