// The set of symbol names, against one that compares letters.
#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "engine/SymbolNames.h"

namespace tovrek::macho {
namespace {

struct Answers {
  std::optional<size_t> repeated, known;
  bool operator==(const Answers&) const = default;
};

Answers byLetters(ByteView pool, const std::vector<uint32_t>& starts, size_t count) {
  Answers answers;
  std::set<std::string_view> names;
  for (size_t i = 0; i < count && !answers.repeated; ++i) {
    if (!names.insert(pool.cString(starts[i])).second) answers.repeated = i;
  }
  for (size_t i = count; i < starts.size() && !answers.known; ++i) {
    if (names.contains(pool.cString(starts[i]))) answers.known = i;
  }
  return answers;
}

// Letters of two kinds in names of about `length`, so that equal names, tails of each other and
// names that end with the pool all occur; long ones are read several times over.
TEST(SymbolNames, AnswersAsASetOfTextsDoes) {
  std::mt19937 random(7);
  const auto below = [&](size_t limit) { return static_cast<uint32_t>(random() % limit); };
  size_t repeated = 0, known = 0;
  for (int round = 0; round < 3000; ++round) {
    const size_t length = size_t{1} << below(9);
    std::string letters(1 + below(400), 'a');
    for (char& letter : letters) letter = below(length + 1) == 0 ? '\0' : "ab"[below(2)];
    std::vector<uint32_t> starts(below(40));
    for (uint32_t& start : starts) start = below(letters.size());
    const size_t count = below(starts.size() + 1);

    const ByteView pool(std::as_bytes(std::span(letters)));
    SymbolNames names(pool, starts);
    const Answers answers{names.define(count), names.firstDefined(count)};
    ASSERT_EQ(answers, byLetters(pool, starts, count)) << "round " << round;
    repeated += answers.repeated.has_value();
    known += answers.known.has_value();
  }
  EXPECT_GT(repeated, 300);
  EXPECT_LT(repeated, 2700);
  EXPECT_GT(known, 300);
}

}  // namespace
}  // namespace tovrek::macho
