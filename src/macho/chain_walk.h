// Following chained fix-ups (LC_DYLD_CHAINED_FIXUPS): the places that the loader slides or binds,
// linked to each other in the data itself, after the published <mach-o/fixup-chains.h> format.
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

enum class ChainWalk {
  kDone,
  kUnknownForm,  // the tables have a version, or a pointer format, that is not known here
  kDamaged,      // a table or chain leads out of its bounds, or names more than the image holds
};

// Visits the places of all chains of a little-endian image, page by page, up to the first thing
// that is wrong; `fixups` is the table in the link-edit segment, `base` the address of the Mach-O
// header.
ChainWalk walkChains(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                     uint64_t base, const ChainedSiteVisitor& visit);

}  // namespace tovrek::macho
