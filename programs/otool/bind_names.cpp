#include "programs/otool/bind_names.h"

#include <algorithm>

#include "macho/LoaderOpcodes.h"

namespace tovrek::otool {
namespace {

// Notes the places of a run. False when there are too many.
bool take(const macho::SiteRun& run, std::span<const uint64_t> segments, uint64_t limit,
          BindNames* names) {
  uint64_t address = run.offset + (run.hasSegment ? segments[run.segment] : 0);
  for (uint64_t i = 0; i < run.count; ++i, address += run.stride) {
    if (names->places.size() + names->ordinals.size() >= limit) return false;
    if (run.isThreaded) {
      names->ordinals.push_back(run.name);
    } else {
      names->places.emplace_back(address, run.name);
    }
  }
  return true;
}

}  // namespace

BindNames readBindNames(macho::ByteView opcodes, std::span<const uint64_t> segmentAddresses,
                        uint32_t pointerSize, uint64_t limit) {
  BindNames names;
  macho::LoaderOpcodes codes(macho::LoaderOpcodes::Stream::kBindWithThreads, opcodes,
                             static_cast<uint32_t>(segmentAddresses.size()), pointerSize);
  // What came before damage still holds.
  while (codes.next() && take(codes.run(), segmentAddresses, limit, &names)) {
  }
  names.isThreaded = codes.isThreaded();
  std::ranges::stable_sort(names.places, {}, &std::pair<uint64_t, std::string_view>::first);
  return names;
}

}  // namespace tovrek::otool
