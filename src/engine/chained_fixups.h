// Chained fix-ups (LC_DYLD_CHAINED_FIXUPS): the places that the loader slides or binds, linked to
// each other in the data itself, after the published format in <mach-o/fixup-chains.h>.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "macho/ByteView.h"

namespace tovrek::macho {

// A place that the loader fills in. `target` is the address that a slid pointer leads to, before
// it is slid; 0 for a bound one.
struct ChainedSite {
  uint64_t address = 0;
  uint64_t target = 0;
  bool bound = false;
};
using ChainedSiteVisitor = std::function<void(const ChainedSite&)>;

// A segment, in the order of the load commands.
struct ChainedSegment {
  uint64_t vmaddr = 0;
  uint64_t fileoff = 0;
  uint64_t filesize = 0;
};

// Visits the places of all chains of a little-endian image, page by page; `fixups` is the table
// in the link-edit segment, `base` the address of the Mach-O header. False, after any number of
// visits, when the table has a version, or a pointer format, that is not known here. A table or
// chain that leads out of its bounds, or names more places than the image holds, throws
// MachORebuildErrors.
bool walkChainedFixups(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                       uint64_t base, const ChainedSiteVisitor& visit);

}  // namespace tovrek::macho
