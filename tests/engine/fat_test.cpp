// Universal files as the checker walks them.
#include <gtest/gtest.h>

#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::buildFat;
using test::checkBytes;
using test::kArm64;
using test::kArmv7;
using test::MachOBuilder;
using test::soundImage;
using test::stored;

std::string badImage(const test::TestArch& arch) {
  MachOBuilder b(arch);
  b.header["flags"] = 2;
  return b.build();
}

TEST(FatCheck, WalksSlicesInOrderUpToAnUnknownOne) {
  const test::TestArch unknown{"", false, false, 99, 0};
  const test::TestArch order{"", true, false, 0, 0};
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, soundImage(kArmv7)}, {kArm64, soundImage(kArm64)}})),
            "ok");
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, soundImage(kArmv7)}, {kArm64, badImage(kArm64)}})),
            "1108");
  EXPECT_EQ(checkBytes(buildFat({{unknown, "x"}, {kArm64, badImage(kArm64)}})), "ok");
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, soundImage(kArm64)}})), "1104");
  std::string file = buildFat({{kArm64, soundImage(kArm64)}});
  test::patch(&file, 16, stored(order, 0xfffffff0, 4));
  EXPECT_EQ(checkBytes(file), "1104") << "offset beyond the file";
  file = buildFat({{kArm64, soundImage(kArm64)}});
  test::patch(&file, 4, stored(order, 0xffffffff, 4));
  EXPECT_EQ(checkBytes(file), "ok") << "the zeros behind the table are an unknown architecture";
  EXPECT_EQ(checkBytes(std::string("\xca\xfe\xba\xbe\xff\xff\xff\xff", 8)), "1104");
}

TEST(FatCheck, OverlappingSlicesAreNotCheckedAgainAndAgain) {
  const std::vector<test::FatMember> members(3, {kArm64, soundImage(kArm64)});
  std::string file = buildFat(members);
  const test::TestArch order{"", true, false, 0, 0};
  for (size_t i = 0; i < 3; ++i) {
    test::patch(&file, 8 + 20 * i + 8, stored(order, 0x4000, 4));
    test::patch(&file, 8 + 20 * i + 12, stored(order, file.size() - 0x4000, 4));
  }
  EXPECT_EQ(checkBytes(file), "1104");
}

}  // namespace
}  // namespace tovrek
