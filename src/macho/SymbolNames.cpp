#include "macho/SymbolNames.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <numeric>
#include <string_view>
#include <utility>

namespace tovrek::macho {
namespace {

// A name by its place among the sorted starts. The length comes before the letters, so that only
// names of one length are compared letter by letter; those cannot share letters in the pool.
struct Spelled {
  uint64_t hash;
  uint64_t mix;
  uint32_t size;
  uint32_t index;
};

// CStringHash gives "16" and "21" the same value, as digits outnumber its factor: names
// that count up collide by the thousand. A second hash, by a factor no text comes near, tells
// those apart without looking at their letters again.
class Mix {
 public:
  void prepend(char letter) {
    value_ += (static_cast<unsigned char>(letter) + uint64_t{1}) * power_;
    power_ *= 0x9e3779b97f4a7c15;
  }
  uint64_t value() const { return value_ * 0xbf58476d1ce4e5b9; }  // spread into the upper bits

 private:
  uint64_t value_ = 0;
  uint64_t power_ = 1;
};

// Hashes all names in one pass from the pool's end to its start.
std::vector<Spelled> spell(std::string_view letters, const std::vector<uint32_t>& starts) {
  std::vector<Spelled> names(starts.size());
  CStringHash hash;
  Mix mix;
  size_t end = letters.size();
  size_t next = starts.size();
  for (size_t i = letters.size(); i-- > starts.front();) {
    if (letters[i] == '\0') {
      hash = CStringHash();
      mix = Mix();
      end = i;
    } else {
      hash.prepend(letters[i]);
      mix.prepend(letters[i]);
    }
    if (next > 0 && starts[next - 1] == i) {
      --next;
      names[next] = {hash.value(), mix.value(), static_cast<uint32_t>(end - i),
                     static_cast<uint32_t>(next)};
    }
  }
  return names;
}

// Sorts by `before`, which looks at the mix first. Spreading the names over small buckets takes
// most of the work away; names of one mix share a bucket, whose size changes nothing but speed.
template <class Before>
std::vector<Spelled> sortedByMix(const std::vector<Spelled>& names, const Before& before) {
  const int bits = std::max(static_cast<int>(std::bit_width(names.size())) - 2, 1);
  const auto bucketOf = [bits](const Spelled& name) { return name.mix >> (64 - bits); };
  std::vector<uint32_t> ends((size_t{1} << bits) + 1);
  for (const Spelled& name : names) ++ends[bucketOf(name) + 1];
  for (size_t i = 1; i < ends.size(); ++i) ends[i] += ends[i - 1];
  std::vector<Spelled> sorted(names.size());
  for (const Spelled& name : names) sorted[ends[bucketOf(name)]++] = name;
  size_t start = 0;
  for (const uint32_t end : ends) {
    std::sort(sorted.begin() + static_cast<ptrdiff_t>(start), sorted.begin() + end, before);
    start = end;
  }
  return sorted;
}

}  // namespace

SymbolNames::SymbolNames(ByteView pool, std::vector<uint32_t> starts) : starts_(std::move(starts)) {
  if (starts_.empty()) return;
  if (!std::ranges::is_sorted(starts_)) std::ranges::sort(starts_);
  starts_.erase(std::unique(starts_.begin(), starts_.end()), starts_.end());

  const void* begin = pool.bytes().data();
  const std::string_view letters(static_cast<const char*>(begin), pool.size());
  const auto compare = [&](const Spelled& a, const Spelled& b) {
    if (a.mix != b.mix) return a.mix <=> b.mix;
    if (a.hash != b.hash) return a.hash <=> b.hash;
    if (a.size != b.size) return a.size <=> b.size;
    return letters.substr(starts_[a.index], a.size) <=> letters.substr(starts_[b.index], b.size);
  };
  const std::vector<Spelled> names =
      sortedByMix(spell(letters, starts_),
                  [&](const Spelled& a, const Spelled& b) { return std::is_lt(compare(a, b)); });
  // Nearly every name is the only one of its kind and keeps its own index as its number.
  numbers_.resize(names.size());
  std::iota(numbers_.begin(), numbers_.end(), 0U);
  for (size_t i = 1; i < names.size(); ++i) {
    if (std::is_eq(compare(names[i - 1], names[i]))) {
      numbers_[names[i].index] = numbers_[names[i - 1].index];
    }
  }
  defined_.resize(names.size());
}

std::optional<uint32_t> SymbolNames::numberOf(uint32_t start) {
  // Most tables name their strings in order.
  if (next_ >= starts_.size() || starts_[next_] != start) {
    const auto found = std::ranges::lower_bound(starts_, start);
    if (found == starts_.end() || *found != start) return std::nullopt;
    next_ = static_cast<size_t>(found - starts_.begin());
  }
  return numbers_[next_++];
}

bool SymbolNames::add(uint32_t start) {
  const std::optional<uint32_t> number = numberOf(start);
  if (!number || defined_[*number]) return false;
  defined_[*number] = true;
  return true;
}

bool SymbolNames::contains(uint32_t start) {
  const std::optional<uint32_t> number = numberOf(start);
  return number && defined_[*number];
}

}  // namespace tovrek::macho
