// The places that the compressed loader information names, with the engine's failures for what is
// wrong with it.
#pragma once

#include <cstdint>
#include <functional>

#include "macho/ByteView.h"
#include "macho/LoaderOpcodes.h"

namespace tovrek::macho {

using SiteRunVisitor = std::function<void(const SiteRun&)>;

// Visit the runs of a rebase or bind stream. A segment number at or above `segmentCount` throws
// MachORebuildErrors; an unknown code, or a number that runs over the end, throws EngineText.
void walkRebaseOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                       const SiteRunVisitor& visit);
void walkBindOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                     const SiteRunVisitor& visit);

}  // namespace tovrek::macho
