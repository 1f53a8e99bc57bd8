#include "programs/otool/PointerReader.h"

#include <algorithm>

#include "macho/ChainedPointer.h"

namespace tovrek::otool {
namespace {

constexpr uint8_t kUndefined = 0;

template <class Pair>
const typename Pair::second_type* findAt(const std::vector<Pair>& pairs, uint64_t address) {
  const auto found = std::ranges::lower_bound(pairs, address, {}, &Pair::first);
  return found != pairs.end() && found->first == address ? &found->second : nullptr;
}

}  // namespace

template <class P>
PointerReader<P>::PointerReader(const macho::Image<P>& image) : image_(image) {
  if (const auto& table = image.pointers.chainedFixups) {
    fixups_ =
        macho::ChainedTables<typename P::Order>(image.bytes.sub(table->dataoff, table->datasize));
  }
  readBinds();
  readSegments();
  readSymbols();
  readRelocations();
}

template <class P>
void PointerReader<P>::readSegments() {
  // Threaded binds are chains of the first format for this processor.
  const uint16_t format = binds_.isThreaded ? macho::DYLD_CHAINED_PTR_ARM64E : 0;
  for (const auto& segment : image_.segments) {
    const auto& record = segment.record;
    ranges_.push_back({record.vmaddr, record.filesize, record.fileoff, format});
    if (record.fileoff == 0 && record.filesize != 0) base_ = record.vmaddr;
  }
  std::ranges::stable_sort(ranges_, {}, &Range::address);
  for (uint32_t i = 0; i < fixups_.segmentCount(); ++i) {
    const auto starts = fixups_.segment(i);
    if (!starts) break;
    if (!starts->any) continue;
    const uint64_t address = base_ + starts->offset;
    const auto range = std::ranges::lower_bound(ranges_, address, {}, &Range::address);
    if (range != ranges_.end() && range->address == address) range->chainFormat = starts->format;
  }
}

template <class P>
void PointerReader<P>::readSymbols() {
  for (uint64_t i = 0; i < image_.symbolCount(); ++i) {
    const macho::macho_nlist<P> symbol = image_.symbol(i);
    if ((symbol.n_type & macho::N_STAB) != 0) continue;
    if ((symbol.n_type & macho::N_TYPE) != macho::N_SECT) continue;
    symbols_.emplace_back(symbol.n_value, i);
  }
  std::ranges::stable_sort(symbols_, {}, &SymbolPlace::first);
}

template <class P>
void PointerReader<P>::readBinds() {
  if (!image_.pointers.dyldInfo) return;
  const auto& info = *image_.pointers.dyldInfo;
  std::vector<uint64_t> addresses;
  for (const auto& segment : image_.segments) addresses.push_back(segment.record.vmaddr);
  binds_ = readBindNames(image_.bytes.sub(info.bind_off, info.bind_size), addresses,
                         P::kPointerSize, image_.bytes.size() / P::kPointerSize);
}

// Object files say by relocation entries which symbol a pointer leads to.
template <class P>
void PointerReader<P>::readRelocations() {
  if (image_.header.filetype != 1) return;
  for (const auto& section : image_.sections) {
    const macho::ByteView table = image_.bytes.sub(section.reloff, uint64_t{section.nreloc} * 8);
    // Sections may claim the same table again and again.
    if (relocated_.size() > image_.bytes.size() / 8) return;
    macho::macho_relocation_info<P> entry;
    for (uint64_t at = 0; table.read(at, &entry); at += sizeof(entry)) {
      if (entry.isScattered() || entry.r_extern() == 0 || entry.r_type() != 0) continue;
      if (uint32_t{1} << entry.r_length() != P::kPointerSize) continue;
      const auto symbol = image_.symbol(entry.r_symbolnum());
      const uint64_t address = uint64_t{section.addr} + entry.r_address;
      typename P::Address addend;
      if (entry.r_symbolnum() >= image_.symbolCount() || !read(address, &addend)) continue;
      const bool undefined = (symbol.n_type & macho::N_TYPE) == kUndefined;
      relocated_.emplace_back(
          address, Relocated{entry.r_symbolnum(), undefined, uint64_t{symbol.n_value} + addend});
    }
  }
  std::ranges::stable_sort(relocated_, {}, &std::pair<uint64_t, Relocated>::first);
}

template <class P>
const typename PointerReader<P>::Range* PointerReader<P>::rangeOf(uint64_t address) const {
  const auto next = std::ranges::upper_bound(ranges_, address, {}, &Range::address);
  if (next == ranges_.begin()) return nullptr;
  const Range& range = *std::prev(next);
  return address - range.address < range.size ? &range : nullptr;
}

template <class P>
macho::ByteView PointerReader<P>::bytesAt(uint64_t address) const {
  const Range* range = rangeOf(address);
  if (range == nullptr) return {};
  const uint64_t into = address - range->address;
  const uint64_t offset = range->fileOffset + into;
  if (offset < into || offset >= image_.bytes.size()) return {};
  return image_.bytes.sub(offset, std::min(range->size - into, image_.bytes.size() - offset));
}

template <class P>
std::optional<std::string_view> PointerReader<P>::textAt(uint64_t address) const {
  const macho::ByteView bytes = bytesAt(address);
  if (bytes.size() == 0) return std::nullopt;
  return bytes.cString(0);
}

template <class P>
std::string_view PointerReader<P>::symbolAt(uint64_t address) const {
  const auto next = std::ranges::upper_bound(symbols_, address, {}, &SymbolPlace::first);
  if (next == symbols_.begin() || std::prev(next)->first != address) return {};
  return image_.symbolName(image_.symbol(std::prev(next)->second));
}

template <class P>
Target PointerReader<P>::decode(uint16_t format, uint64_t raw) const {
  const auto pointer = macho::decodeChainedPointer(format, raw);
  if (!pointer || raw == 0) return {raw, {}};
  if (!pointer->isBind) return {pointer->target + (pointer->targetIsOffset ? base_ : 0), {}};
  if (!binds_.isThreaded) return {0, fixups_.importName(pointer->ordinal)};
  const bool known = pointer->ordinal < binds_.ordinals.size();
  return {0, known ? binds_.ordinals[pointer->ordinal] : std::string_view()};
}

template <class P>
std::optional<Target> PointerReader<P>::at(uint64_t address) const {
  if (const Relocated* relocated = findAt(relocated_, address)) {
    if (!relocated->isImport) return Target{relocated->address, {}};
    return Target{0, image_.symbolName(image_.symbol(relocated->symbol))};
  }
  const Range* range = rangeOf(address);
  typename P::Address raw;
  if (range == nullptr || !read(address, &raw)) return std::nullopt;
  if (range->chainFormat != 0) return decode(range->chainFormat, raw);
  if (const std::string_view* name = findAt(binds_.places, address)) return Target{raw, *name};
  return Target{raw, {}};
}

#define TOVREK_INSTANTIATE(P) template class PointerReader<P>;
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
