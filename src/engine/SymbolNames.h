// The set of names that an image's external symbols define.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "macho/ByteView.h"

namespace tovrek::macho {

// Takes time linear in the pool and the number of names, whatever they are.
class SymbolNames {
 public:
  // `starts` are the places of the names in the pool, each inside it; both must outlive this.
  SymbolNames(ByteView pool, std::span<const uint32_t> starts);

  // The index of the first name that equals an earlier one, of the first `count`; those before it
  // are defined from now on.
  std::optional<size_t> define(size_t count);
  // The index of the first defined name, from the one at `first`.
  std::optional<size_t> firstDefined(size_t first) const;

 private:
  struct Slot {
    uint32_t tag = 0;   // bits of the hash that do not choose the slot
    uint32_t name = 0;  // its index plus one: 0 is an empty slot
  };
  // The slot that holds the name of this index, or else the empty one where it belongs.
  size_t slotOf(size_t name) const;
  void prefetch(size_t name) const;
  bool equal(size_t a, size_t b) const;

  ByteView pool_;
  std::span<const uint32_t> starts_;
  std::vector<uint64_t> hashes_;
  std::vector<Slot> slots_;  // a power of two, at least a quarter more than names
};

}  // namespace tovrek::macho
