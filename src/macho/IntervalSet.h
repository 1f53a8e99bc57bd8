// Ranges that must not overlap.
#pragma once

#include <cstdint>
#include <iterator>
#include <map>

#include "macho/rounding.h"

namespace tovrek::macho {

// Kept sorted, so that adding n ranges takes n log n steps however a file arranges them.
class IntervalSet {
 public:
  // Adds [start, start + size); false, with nothing added, when it overlaps one that is there.
  // An empty range overlaps nothing.
  bool add(uint64_t start, uint64_t size) {
    if (size == 0) return true;
    const uint64_t end = endOf(start, size);
    const auto next = ends_.lower_bound(start);
    if (next != ends_.end() && next->first < end) return false;
    if (next != ends_.begin() && std::prev(next)->second > start) return false;
    ends_.emplace_hint(next, start, end);
    return true;
  }

  // Whether one of the ranges holds `value`.
  bool holds(uint64_t value) const {
    const auto next = ends_.upper_bound(value);
    return next != ends_.begin() && std::prev(next)->second > value;
  }

 private:
  std::map<uint64_t, uint64_t> ends_;  // by start
};

}  // namespace tovrek::macho
