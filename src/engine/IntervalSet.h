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

  // Tells whether one of the ranges holds a value, for one value after another. Tables mostly name
  // neighbours, so the range or gap of the last answer is tried first. The set must outlive this
  // and stay as it is.
  class Lookup {
   public:
    explicit Lookup(const IntervalSet& set) : ends_(set.ends_) {}

    bool holds(uint64_t value) {
      if (value - start_ >= size_) moveTo(value);
      return inside_;
    }

   private:
    void moveTo(uint64_t value) {
      const auto next = ends_.upper_bound(value);
      const uint64_t before = next == ends_.begin() ? 0 : std::prev(next)->second;
      inside_ = before > value;
      start_ = inside_ ? std::prev(next)->first : before;
      size_ = (inside_ ? before : next == ends_.end() ? UINT64_MAX : next->first) - start_;
    }

    const std::map<uint64_t, uint64_t>& ends_;
    uint64_t start_ = 0, size_ = 0;
    bool inside_ = false;
  };

 private:
  std::map<uint64_t, uint64_t> ends_;  // by start
};

}  // namespace tovrek::macho
