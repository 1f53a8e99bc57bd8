// The tables of chained fix-ups (LC_DYLD_CHAINED_FIXUPS), after <mach-o/fixup-chains.h>: which
// segments hold chains of which pointer format, and the names that binds refer to.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "macho/ByteView.h"
#include "macho/byte_order.h"

namespace tovrek::macho {

// A segment with chains. `offset` is where it starts after the start of the image in memory.
struct ChainedStarts {
  uint64_t offset = 0;
  uint16_t format = 0;
};

template <class Order>
class ChainedTables {
 public:
  // `data` is what the command's dataoff and datasize delimit. False when its header or table of
  // segments cannot be read; `out` then has what came before.
  static bool read(ByteView data, ChainedTables* out);

  const std::vector<ChainedStarts>& segments() const { return segments_; }
  // Empty for a number beyond the table, and for names in a compressed pool.
  std::string_view importName(uint32_t ordinal) const;

 private:
  ByteView data_, names_;
  uint32_t importsOffset_ = 0, importsCount_ = 0, importsFormat_ = 0;
  std::vector<ChainedStarts> segments_;
};

}  // namespace tovrek::macho
