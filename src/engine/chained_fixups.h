// The places of chained fix-ups, with the engine's failure for what is wrong with them.
#pragma once

#include <cstdint>
#include <span>

#include "macho/ByteView.h"
#include "macho/chain_walk.h"

namespace tovrek::macho {

// walkChains of macho/chain_walk.h. False, after any number of visits, for a form that is not known
// there; damage throws MachORebuildErrors.
bool walkChainedFixups(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                       uint64_t base, const ChainedSiteVisitor& visit);

}  // namespace tovrek::macho
