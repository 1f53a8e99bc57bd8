#include "engine/name_hashes.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <random>

#include "macho/byte_order.h"

namespace tovrek::macho {
namespace {

// Numbers modulo the Mersenne prime 2^61 - 1, for which a remainder is two additions.
constexpr uint64_t kPrime = (uint64_t{1} << 61) - 1;

uint64_t multiplyAdd(uint64_t a, uint64_t b, uint64_t c) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b + c;
  const uint64_t sum =
      (static_cast<uint64_t>(product) & kPrime) + static_cast<uint64_t>(product >> 61);
  return sum >= kPrime ? sum - kPrime : sum;
}

uint64_t randomPoint() {
  static const uint64_t point = [] {
    std::random_device source;
    return std::uniform_int_distribution<uint64_t>(1U << 16, kPrime - 1)(source);
  }();
  return point;
}

// Seven letters at a time: less than the prime.
constexpr uint64_t kWordSize = 7;
constexpr uint64_t kWordMask = (uint64_t{1} << (8 * kWordSize)) - 1;

// The letters from `at` up to a NUL or the seventh, the first one lowest; zeros behind a NUL.
struct Letters {
  uint64_t word;
  bool last;  // a NUL was among them
};

Letters lettersAt(ByteView pool, uint64_t at) {
  Stored<uint64_t, LittleEndian> stored;
  if (!pool.read(at, &stored)) {
    uint64_t word = 0;
    for (uint64_t i = 0; i < kWordSize && at + i < pool.size(); ++i) {
      const auto letter = static_cast<uint64_t>(pool.bytes()[at + i]);
      if (letter == 0) return {word, true};
      word |= letter << (8 * i);
    }
    return {word, at + kWordSize > pool.size()};
  }
  // Sets the top bit of each zero byte; those above the lowest one may be wrong.
  const uint64_t word = stored & kWordMask;
  constexpr uint64_t kOnes = 0x0101010101010101, kTops = 0x8080808080808080;
  const uint64_t zeros = (word - kOnes) & ~word & kTops & kWordMask;
  if (zeros == 0) return {word, false};
  return {word & ((zeros & -zeros) - 1), true};
}

// Hashes one name after the other. Nothing where that would read the pool more than a few times,
// because names overlap.
std::optional<std::vector<uint64_t>> hashEach(ByteView pool, std::span<const uint32_t> starts) {
  const uint64_t point = randomPoint();
  uint64_t words = pool.size() / 2 + 2 * starts.size();
  std::vector<uint64_t> hashes;
  hashes.reserve(starts.size());
  for (const uint32_t start : starts) {
    uint64_t hash = 1;
    Letters letters{0, false};
    for (uint64_t at = start; !letters.last; at += kWordSize) {
      if (words-- == 0) return std::nullopt;
      letters = lettersAt(pool, at);
      hash = multiplyAdd(hash, point, letters.word);
    }
    // Spreads what only the last letters differ in.
    hashes.push_back(multiplyAdd(hash, point, 0));
  }
  return hashes;
}

// Hashes all names in one pass from the pool's end to the first of them, letter by letter, so that
// a name goes on from the one that is its tail.
std::vector<uint64_t> hashTails(ByteView pool, std::span<const uint32_t> starts) {
  const uint64_t point = randomPoint();
  std::vector<uint32_t> order(starts.begin(), starts.end());
  std::ranges::sort(order);
  order.erase(std::unique(order.begin(), order.end()), order.end());
  std::vector<uint64_t> byOrder(order.size());
  uint64_t hash = 1;
  size_t next = order.size();
  for (uint64_t at = pool.size(); next > 0;) {
    const auto letter = static_cast<uint64_t>(pool.bytes()[--at]);
    hash = letter == 0 ? 1 : multiplyAdd(hash, point, letter);
    if (order[next - 1] == at) byOrder[--next] = multiplyAdd(hash, point, 0);
  }
  std::vector<uint64_t> hashes;
  hashes.reserve(starts.size());
  for (const uint32_t start : starts) {
    const auto found = std::ranges::lower_bound(order, start);
    hashes.push_back(byOrder[static_cast<size_t>(found - order.begin())]);
  }
  return hashes;
}

}  // namespace

std::vector<uint64_t> hashNames(ByteView pool, std::span<const uint32_t> starts) {
  if (auto hashes = hashEach(pool, starts)) return *std::move(hashes);
  return hashTails(pool, starts);
}

}  // namespace tovrek::macho
