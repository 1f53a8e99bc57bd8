#include "macho/ChainedTables.h"

#include <type_traits>

#include "macho/chained_layout.h"

namespace tovrek::macho {
namespace {

enum ImportsFormat : uint32_t {
  DYLD_CHAINED_IMPORT = 1,
  DYLD_CHAINED_IMPORT_ADDEND = 2,
  DYLD_CHAINED_IMPORT_ADDEND64 = 3,
};

}  // namespace

template <class Order>
bool ChainedTables<Order>::read(ByteView data, ChainedTables* out) {
  *out = {};
  dyld_chained_fixups_header<Order> header;
  Stored<uint32_t, Order> segmentCount;
  if (!data.read(0, &header)) return false;
  out->data_ = data;
  out->importsOffset_ = header.imports_offset;
  out->importsCount_ = header.imports_count;
  out->importsFormat_ = header.imports_format;
  const uint64_t names = header.symbols_offset;
  if (header.symbols_format == 0 && names < data.size()) {
    out->names_ = data.sub(names, data.size() - names);
  }
  const uint64_t starts = header.starts_offset;
  if (!data.read(starts, &segmentCount)) return false;
  const uint32_t count = segmentCount;
  for (uint32_t i = 0; i < count; ++i) {
    Stored<uint32_t, Order> offset;
    dyld_chained_starts_in_segment<Order> segment;
    if (!data.read(starts + 4 + uint64_t{i} * 4, &offset)) return false;
    if (offset == 0) continue;  // a segment without pointers
    if (!data.read(starts + offset, &segment)) return false;
    out->segments_.push_back({segment.segment_offset, segment.pointer_format});
  }
  return true;
}

template <class Order>
std::string_view ChainedTables<Order>::importName(uint32_t ordinal) const {
  if (ordinal >= importsCount_) return {};
  constexpr bool kLittle = std::is_same_v<Order, LittleEndian>;
  Stored<uint32_t, Order> word;
  const auto wordAt = [&](uint64_t entrySize, uint64_t within) {
    return data_.read(importsOffset_ + ordinal * entrySize + within, &word);
  };
  switch (importsFormat_) {
    case DYLD_CHAINED_IMPORT:
    case DYLD_CHAINED_IMPORT_ADDEND:
      // Library and weakness take nine bits, the name's place the rest.
      if (!wordAt(importsFormat_ == DYLD_CHAINED_IMPORT ? 4 : 8, 0)) return {};
      return names_.cString(kLittle ? word >> 9 : word & 0x7fffff);
    case DYLD_CHAINED_IMPORT_ADDEND64:
      if (!wordAt(16, 4)) return {};
      return names_.cString(word);
    default:
      return {};
  }
}

template class ChainedTables<LittleEndian>;
template class ChainedTables<BigEndian>;

}  // namespace tovrek::macho
