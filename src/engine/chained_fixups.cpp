#include "engine/chained_fixups.h"

#include "engine/MachORebuildErrors.h"

namespace tovrek::macho {

bool walkChainedFixups(ByteView image, ByteView fixups, std::span<const ChainedSegment> segments,
                       uint64_t base, const ChainedSiteVisitor& visit) {
  const ChainWalk walk = walkChains(image, fixups, segments, base, visit);
  if (walk == ChainWalk::kDamaged) throw MachORebuildErrors::kUnknownCommand;
  return walk == ChainWalk::kDone;
}

}  // namespace tovrek::macho
