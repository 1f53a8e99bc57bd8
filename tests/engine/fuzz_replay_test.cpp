// What the fuzz programs start from and have found, through the same functions.
#include <gtest/gtest.h>

#include <map>

#include "tests/fuzz/engine/engine_fuzzing.h"
#include "tests/support/MachOBuilder.h"

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

// The sanitizers judge, and the promises of the fuzz functions; insertion, which waits for the
// disk, is tried on some of the files.
TEST(FuzzReplay, CutAndOverwrittenCommands) {
  int count = 0;
  const auto tried = [&](const std::string& bytes) {
    EXPECT_NE(test::fuzzCheck(bytes), "");
    if (++count % 8 != 0) return;
    EXPECT_NE(test::fuzzInsertion(bytes), "");
  };
  testing::internal::CaptureStderr();
  for (const test::TestArch& arch : {test::kPpc, test::kArmv7, test::kArm64}) {
    test::MachOBuilder b(arch);
    b.local.push_back({0x100, b.relocationInfo(1, false, 2, false, 0)});
    const std::string good = b.build();
    const auto with = [&](size_t at, const std::string& bytes) {
      std::string bad = good;
      test::patch(&bad, at, bytes);
      return bad;
    };
    // Steps that meet all bytes of a word in turn.
    for (uint64_t size = 1; size < b.commandsEnd() + 8; size += 7) tried(good.substr(0, size));
    for (uint64_t at = 0; at < b.commandsEnd(); at += 3) {
      tried(with(at, at % 2 == 0 ? "\xff" : "\x7f"));
    }
    for (uint64_t at = 0; at < b.commandsEnd(); at += 4) tried(with(at, "\xff\xff\xff\xff"));
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace tovrek
