// The places in initialiser and terminator sections that the loader fills in.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "engine/SegmentFacts.h"
#include "macho/Image.h"
#include "macho/chain_walk.h"

namespace tovrek::macho {

// Sorted.
struct FixupSites {
  std::vector<uint64_t> rebased;
  std::vector<uint64_t> bound;
  std::vector<ChainedSite> chained;  // both again, where they come from chains
};

// "initializer" or "terminator" for sections of their pointers, else empty.
std::string_view initTermKind(uint32_t sectionFlags);

// What the chained fix-ups name, which must be there; they take the place of all else that names
// places, as they do for the loader. None when their form is not known: nothing can be said of the
// pointers then.
template <class P>
std::optional<FixupSites> collectChainedSites(const Image<P>& image, const SegmentFacts<P>& facts);

// What relocation entries and loader opcodes name.
template <class P>
FixupSites collectFixupSites(const Image<P>& image, uint64_t relocationBase);

}  // namespace tovrek::macho
