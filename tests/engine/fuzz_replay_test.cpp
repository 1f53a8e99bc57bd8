// What the fuzz programs start from and have found, through the same functions.
#include <gtest/gtest.h>

#include <map>

#include "tests/fuzz/engine/engine_fuzzing.h"

namespace tovrek {
namespace {

// The outcomes of a target, each with the seeds that have it.
std::map<std::string, int> outcomesOf(const test::FuzzTarget& target) {
  std::map<std::string, int> outcomes;
  testing::internal::CaptureStderr();
  for (const test::FuzzSeed& seed : target.seeds()) ++outcomes[target.run(seed.bytes)];
  testing::internal::GetCapturedStderr();
  return outcomes;
}

TEST(FuzzReplay, SeedsReachBothSides) {
  for (const test::FuzzTarget& target : test::engineFuzzTargets()) {
    std::map<std::string, int> outcomes = outcomesOf(target);
    EXPECT_GE(outcomes["ok"], 4) << target.name;
    EXPECT_GE(outcomes.size(), 2U) << target.name;
  }
}

// Every length of a short table, and a word of ones at every place of it.
TEST(FuzzReplay, CutAndOverwrittenTables) {
  testing::internal::CaptureStderr();
  for (const test::FuzzSeed& seed : test::fatSeeds()) {
    for (size_t size = 0; size < 64 && size < seed.bytes.size(); ++size) {
      EXPECT_NE(test::fuzzFat(seed.bytes.substr(0, size)), "") << seed.name << " cut at " << size;
      std::string bad = seed.bytes;
      bad.replace(size, 4, "\xff\xff\xff\xff");
      EXPECT_NE(test::fuzzFat(bad), "") << seed.name << " at " << size;
    }
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace tovrek
