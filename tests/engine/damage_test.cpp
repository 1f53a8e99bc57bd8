// Damaged and hostile files: every outcome is a clean refusal or acceptance.
#include <gtest/gtest.h>

#include "host/files.h"
#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::checkBytes;
using test::MachOBuilder;

const test::TestArch kChosen[] = {test::kPpc, test::kArmv7, test::kArm64};

// The sanitizers judge; insertion, which waits for the disk, is tried on some of the files.
class Tried {
 public:
  void operator()(const std::string& bytes) {
    EXPECT_NE(checkBytes(bytes), "");
    if (++count_ % 8 != 0) return;
    const std::string path = folder_.write("image", bytes);
    EXPECT_NE(test::insertAt(path), "");
    EXPECT_EQ(fileSize(path), bytes.size()) << "a file never grows";
  }

 private:
  const test::TemporaryFolder folder_;
  int count_ = 0;
};

TEST(Damage, TruncationsAndBytesOfExtremes) {
  Tried tried;
  testing::internal::CaptureStderr();
  for (const test::TestArch& arch : kChosen) {
    MachOBuilder b(arch);
    b.local.push_back({0x100, b.relocationInfo(1, false, 2, false, 0)});
    const std::string good = b.build();
    // Steps that meet all bytes of a word in turn.
    for (uint64_t size = 1; size < b.commandsEnd() + 8; size += 7) tried(good.substr(0, size));
    for (uint64_t at = 0; at < b.commandsEnd(); at += 3) {
      std::string bad = good;
      bad[at] = static_cast<char>(at % 2 == 0 ? 0xff : 0x7f);
      tried(bad);
    }
    for (uint64_t at = 0; at < b.commandsEnd(); at += 4) {
      std::string bad = good;
      test::patch(&bad, at, std::string(4, '\xff'));
      tried(bad);
    }
  }
  testing::internal::GetCapturedStderr();
}

TEST(Damage, OverlappingSlicesAreNotCheckedAgainAndAgain) {
  const std::string image = MachOBuilder(test::kArm64).build();
  std::vector<test::FatMember> members(3, {test::kArm64, image});
  std::string file = test::buildFat(members);
  const test::TestArch order{"", true, false, 0, 0};
  for (int i = 0; i < 3; ++i) {
    test::patch(&file, 8 + 20 * i + 8, test::stored(order, 0x4000, 4));
    test::patch(&file, 8 + 20 * i + 12, test::stored(order, file.size() - 0x4000, 4));
  }
  EXPECT_EQ(checkBytes(file), "1104");
}

}  // namespace
}  // namespace tovrek
