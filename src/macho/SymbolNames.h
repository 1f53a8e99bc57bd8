// The set of names that an image's external symbols define.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "macho/ByteView.h"

namespace tovrek::macho {

// The hash of names: h becomes h times 5 plus the next (signed) character, from 0 up to the
// terminator. Grown from the end of a name to its start here, because names in a string pool may
// be tails of each other and are then hashed all at once.
class CStringHash {
 public:
  void prepend(char letter) {
    value_ += static_cast<uint64_t>(static_cast<signed char>(letter)) * power_;
    power_ *= 5;
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0;
  uint64_t power_ = 1;
};

// Works in time linear in the pool plus n log n for n symbols, also for pools in which all names
// share one tail or one hash: names are numbered first, equal ones (of equal hash and equal text)
// alike, and the set is one bit for each number.
class SymbolNames {
 public:
  // `starts` are the places in the pool, each inside it, of all names that will be asked for.
  SymbolNames(ByteView pool, std::vector<uint32_t> starts);

  // Adds the name at `start`; false when an equal one is there already.
  bool add(uint32_t start);
  bool contains(uint32_t start);

 private:
  std::optional<uint32_t> numberOf(uint32_t start);

  std::vector<uint32_t> starts_;   // sorted
  std::vector<uint32_t> numbers_;  // of the name at each start
  std::vector<bool> defined_;      // by number
  size_t next_ = 0;                // behind the start that was asked for last
};

}  // namespace tovrek::macho
