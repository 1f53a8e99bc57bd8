// The records of chained fix-ups, after the published <mach-o/fixup-chains.h> format.
#pragma once

#include <cstdint>

#include "macho/byte_order.h"

namespace tovrek::macho {

// `starts_offset` leads to a count of segments and as many offsets from there, each 0 for a segment
// without chains; all are of 32 bits.
template <class Order>
struct dyld_chained_fixups_header {
  Stored<uint32_t, Order> fixups_version, starts_offset, imports_offset, symbols_offset;
  Stored<uint32_t, Order> imports_count, imports_format, symbols_format;
};

// The start of the chain of each page follows, 16 bits each.
template <class Order>
struct dyld_chained_starts_in_segment {
  Stored<uint32_t, Order> size;
  Stored<uint16_t, Order> page_size, pointer_format;
  Stored<uint64_t, Order> segment_offset;
  Stored<uint32_t, Order> max_valid_pointer;
  Stored<uint16_t, Order> page_count;
};

static_assert(sizeof(dyld_chained_fixups_header<LittleEndian>) == 28);
static_assert(sizeof(dyld_chained_starts_in_segment<LittleEndian>) == 22);

}  // namespace tovrek::macho
