#include "engine/SymbolNames.h"

#include <bit>

#include "engine/name_hashes.h"

namespace tovrek::macho {
namespace {

// The slots lie all over the memory: each is asked for this many names ahead.
constexpr size_t kAhead = 16;

uint32_t tagOf(uint64_t hash) {
  return static_cast<uint32_t>(hash >> 29);
}

}  // namespace

SymbolNames::SymbolNames(ByteView pool, std::span<const uint32_t> starts)
    : pool_(pool),
      starts_(starts),
      hashes_(hashNames(pool, starts)),
      slots_(std::bit_ceil(starts.size() + starts.size() / 4 + 1)) {}

// Different names of one hash and one tag do not occur (see name_hashes.h), so letters are compared
// for equal names alone, of which the first one ends the work.
bool SymbolNames::equal(size_t a, size_t b) const {
  return starts_[a] == starts_[b] || pool_.cString(starts_[a]) == pool_.cString(starts_[b]);
}

size_t SymbolNames::slotOf(size_t name) const {
  const size_t mask = slots_.size() - 1;
  const uint32_t tag = tagOf(hashes_[name]);
  size_t at = hashes_[name] & mask;
  while (slots_[at].name != 0 && !(slots_[at].tag == tag && equal(slots_[at].name - 1, name))) {
    at = (at + 1) & mask;
  }
  return at;
}

void SymbolNames::prefetch(size_t name) const {
  if (name < hashes_.size()) __builtin_prefetch(&slots_[hashes_[name] & (slots_.size() - 1)]);
}

std::optional<size_t> SymbolNames::define(size_t count) {
  for (size_t name = 0; name < count; ++name) {
    prefetch(name + kAhead);
    Slot& slot = slots_[slotOf(name)];
    if (slot.name != 0) return name;
    slot = {tagOf(hashes_[name]), static_cast<uint32_t>(name + 1)};
  }
  return std::nullopt;
}

std::optional<size_t> SymbolNames::firstDefined(size_t first) const {
  for (size_t name = first; name < hashes_.size(); ++name) {
    prefetch(name + kAhead);
    if (slots_[slotOf(name)].name != 0) return name;
  }
  return std::nullopt;
}

}  // namespace tovrek::macho
