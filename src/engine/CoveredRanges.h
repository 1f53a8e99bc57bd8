// Ranges that have been dealt with.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>

namespace tovrek::macho {

// Lets work be done once for every place however often a file names it: n ranges, overlapping as
// they like, are visited in the time that their union takes, plus n log n.
class CoveredRanges {
 public:
  // Visits the parts of [start, end) that no earlier call has covered, in ascending order, as
  // (start, end) pairs; then they count as covered, unless the visitor threw.
  template <class Visitor>
  void cover(uint64_t start, uint64_t end, Visitor&& visit) {
    if (start >= end) return;
    auto next = ends_.upper_bound(start);
    if (next != ends_.begin() && std::prev(next)->second >= start) --next;
    uint64_t first = start, last = end, at = start;
    const auto begin = next;
    for (; next != ends_.end() && next->first <= end; ++next) {
      if (at < next->first) visit(at, next->first);
      at = std::max(at, next->second);
      first = std::min(first, next->first);
      last = std::max(last, next->second);
    }
    if (at < end) visit(at, end);
    ends_.erase(begin, next);
    ends_.emplace(first, last);
  }

 private:
  std::map<uint64_t, uint64_t> ends_;  // by start; neither overlapping nor touching
};

}  // namespace tovrek::macho
