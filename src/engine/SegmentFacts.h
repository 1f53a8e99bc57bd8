// What the pass over the segments finds for the checks after it.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/IntervalSet.h"
#include "macho/layout.h"

namespace tovrek::macho {

template <class P>
struct SegmentFacts {
  std::optional<macho_segment_command<P>> text;   // the first of its name
  std::optional<macho_segment_command<P>> stack;  // the last of its name
  std::optional<uint64_t> firstWritable;          // where the first writable one starts
  bool highBase = false;                          // one lies above 4 GB
  IntervalSet writable;                           // addresses in writable ones
};

}  // namespace tovrek::macho
