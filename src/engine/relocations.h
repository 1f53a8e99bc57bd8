// Entries of relocation tables and the addresses that they apply to.
#pragma once

#include <cstdint>

#include "engine/MachORebuildErrors.h"
#include "engine/SegmentFacts.h"
#include "macho/Image.h"

namespace tovrek::macho {

// Where the addresses of an image's relocation entries count from.
template <class Arch>
uint64_t relocBase(const Image<typename Arch::P>& image,
                   const SegmentFacts<typename Arch::P>& facts);

template <class P>
uint64_t relocatedAddress(const macho_relocation_info<P>& entry, uint64_t base) {
  return static_cast<typename P::Integer>(base + entry.distance());
}

// Hands over the entries of a table that was found to lie in the link-edit segment.
template <class P, class Visitor>
void forEachRelocation(const Image<P>& image, uint64_t offset, uint32_t count, Visitor&& visit) {
  using Entry = macho_relocation_info<P>;
  const ByteView table = image.bytes.sub(offset, uint64_t{count} * sizeof(Entry));
  for (uint32_t i = 0; i < count; ++i) {
    Entry entry;
    if (!table.read(uint64_t{i} * sizeof(entry), &entry)) {
      throw MachORebuildErrors::kCommandBeyondFile;
    }
    visit(entry);
  }
}

}  // namespace tovrek::macho
