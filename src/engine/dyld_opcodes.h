// The compressed loader information (LC_DYLD_INFO): byte codes that name the places which the
// loader slides or binds, after the published format in <mach-o/loader.h>.
#pragma once

#include <cstdint>
#include <functional>

#include "macho/ByteView.h"

namespace tovrek::macho {

// `count` places, `stride` bytes apart, from `offset` in the segment on.
struct SiteRun {
  uint32_t segment = 0;
  uint64_t offset = 0;
  uint64_t count = 0;
  uint64_t stride = 0;
};
using SiteRunVisitor = std::function<void(const SiteRun&)>;

// Visit the runs of a rebase or bind stream. A segment number at or above `segmentCount` throws
// MachORebuildErrors; an unknown code, or a number that runs over the end, throws EngineText.
void walkRebaseOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                       const SiteRunVisitor& visit);
void walkBindOpcodes(ByteView opcodes, uint32_t segmentCount, uint32_t pointerSize,
                     const SiteRunVisitor& visit);

}  // namespace tovrek::macho
