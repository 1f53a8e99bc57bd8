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
ChainedTables<Order>::ChainedTables(ByteView data) {
  dyld_chained_fixups_header<Order> header;
  if (!data.read(0, &header)) return;
  hasHeader_ = true;
  data_ = data;
  version_ = header.fixups_version;
  importsOffset_ = header.imports_offset;
  importsCount_ = header.imports_count;
  importsFormat_ = header.imports_format;
  const uint64_t names = header.symbols_offset;
  if (header.symbols_format == 0 && names < data.size()) {
    names_ = data.sub(names, data.size() - names);
  }
  startsOffset_ = header.starts_offset;
  Stored<uint32_t, Order> count;
  hasSegments_ = data.read(startsOffset_, &count);
  if (hasSegments_) segmentCount_ = count;
}

template <class Order>
std::optional<ChainedStarts> ChainedTables<Order>::segment(uint32_t index) const {
  Stored<uint32_t, Order> offset;
  const uint64_t starts = startsOffset_;
  if (!data_.read(starts + (1 + uint64_t{index}) * sizeof(offset), &offset)) return std::nullopt;
  if (offset == 0) return ChainedStarts{};
  dyld_chained_starts_in_segment<Order> record;
  if (!data_.read(starts + offset, &record)) return std::nullopt;
  return ChainedStarts{true,
                       record.segment_offset,
                       record.pointer_format,
                       record.page_size,
                       record.page_count,
                       record.max_valid_pointer,
                       starts + offset + sizeof(record)};
}

template <class Order>
std::optional<uint16_t> ChainedTables<Order>::pageStart(uint64_t pages, uint32_t index) const {
  Stored<uint16_t, Order> start;
  if (!data_.read(pages + uint64_t{index} * sizeof(start), &start)) return std::nullopt;
  return start;
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
