// Universal files: the table as it is, the strict reader and layout, and the tolerant reader.
#include <gtest/gtest.h>

#include "macho/FatFile.h"
#include "macho/ObjectFile.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::macho {
namespace {

using test::buildFat;
using test::kArm64;
using test::kArmv7;
using test::stored;

constexpr test::TestArch kBigEndian{"", true, false, 0, 0};

std::string image(const test::TestArch& arch) {
  return test::MachOBuilder(arch).build();
}

std::string twoSlices() {
  return buildFat({{kArmv7, image(kArmv7)}, {kArm64, image(kArm64)}});
}

std::string patched(std::string file, uint64_t at, uint64_t word) {
  test::patch(&file, at, stored(kBigEndian, word, 4));
  return file;
}

// A file whose table has 64-bit offsets.
std::string wideFile() {
  const std::string inner = image(kArm64);
  std::string file = stored(kBigEndian, 0xcafebabf, 4) + stored(kBigEndian, 1, 4);
  for (const uint64_t word : {0x0100000cu, 0u}) file += stored(kBigEndian, word, 4);
  file += stored(kBigEndian, 0x4000, 8) + stored(kBigEndian, inner.size(), 8);
  file += stored(kBigEndian, 14, 4) + stored(kBigEndian, 0, 4);
  file.resize(0x4000);
  return file + inner;
}

TEST(FatFile, RefusesWhatLiesOutsideOrOverlaps) {
  const std::string good = twoSlices();
  const struct {
    std::string file;
    const char* error;
  } cases[] = {
      {patched(good, 4, 0x80000000), "table of 2147483648 architectures extends beyond the file"},
      {patched(good, 16, 40), "slice at offset 40 overlaps what ends at 48"},
      {patched(good, 20, 0x4001), "slice at offset 32768 overlaps what ends at 32769"},
      {patched(good, 36, 0xffffffff), "slice 1 extends beyond the file"},
      {patched(good, 40, 0x4001), "slice 1 extends beyond the file"},
      {good.substr(0, 7), "table of 0 architectures extends beyond the file"},
      {"junk", "not a Mach-O file"},
      {"", "not a Mach-O file"},
      {wideFile(), "not a Mach-O file"},
      {image(kArm64).substr(0, 31), "not a Mach-O file"},
  };
  for (const auto& each : cases) {
    FatFile out;
    ErrorText error;
    EXPECT_FALSE(FatFile::read(viewOf(each.file), &out, &error));
    EXPECT_EQ(error.text(), each.error);
  }
  FatFile out;
  ErrorText error;
  ASSERT_TRUE(FatFile::read(viewOf(good), &out, &error));
  ASSERT_EQ(out.slices.size(), 2u);
  EXPECT_EQ(out.slices[1].offset, 0x8000u);
  EXPECT_EQ(fatFileHeader(out.slices), good.substr(0, 48));
}

TEST(FatFile, OffsetsHave32Bits) {
  std::vector<FatSlice> large = {{12, 9, 0, 0xf0000000, 14}, {1, 0, 0, 0x20000000, 14}};
  EXPECT_TRUE(layOutFatFile(large, nullptr));
  large.push_back({2, 0, 0, 1, 14});
  EXPECT_FALSE(layOutFatFile(large, nullptr));
}

TEST(ObjectFile, ReadsWhatDamagedTablesStillHold) {
  using Kind = ObjectFile::Kind;
  const std::string good = twoSlices();
  const struct {
    std::string file;
    Kind kind;
    size_t slices;
    std::string problem;      // of the table
    std::string lastProblem;  // of the last slice
    uint64_t lastSize = 0;
  } cases[] = {
      {good, Kind::kUniversal, 2, "", "", 0x4000},
      {image(kArm64), Kind::kThin, 1, "", "", 0x4000},
      {image(kArm64).substr(0, 12), Kind::kThin, 1, "", "", 12},
      {image(kArm64).substr(0, 11), Kind::kOther, 0, "", ""},
      {wideFile(), Kind::kUniversal, 1, "", "", 0x4000},
      {good.substr(0, 0x8100), Kind::kUniversal, 2, "",
       "offset plus size of slice 1 extends past the end of the file", 0x100},
      {patched(good, 36, 0xffffffff), Kind::kUniversal, 2, "",
       "offset plus size of slice 1 extends past the end of the file", 0},
      {patched(good, 28, 12), Kind::kUniversal, 2, "",
       "cputype of slice 1 does not match the image there", 0x4000},
      {patched(good, 4, 44).substr(0, 48), Kind::kUniversal, 2,
       "table of 44 architectures extends past the end of the file",
       "offset plus size of slice 1 extends past the end of the file", 0},
      {patched(good, 4, 45), Kind::kOther, 0, "", ""},  // a compiled Java class
      {"text", Kind::kOther, 0, "", ""},
  };
  const test::TemporaryFolder folder;
  for (const auto& each : cases) {
    SCOPED_TRACE(&each - cases);
    ObjectFile file;
    ErrorText error;
    ASSERT_TRUE(file.open(folder.write("file", each.file), &error)) << error.text();
    EXPECT_EQ(file.kind(), each.kind);
    EXPECT_EQ(file.problem(), each.problem);
    ASSERT_EQ(file.slices().size(), each.slices);
    if (each.slices == 0) continue;
    EXPECT_EQ(file.slices().back().problem, each.lastProblem);
    EXPECT_EQ(file.slices().back().bytes.size(), each.lastSize);
  }
}

TEST(ObjectFile, SlicesAreChosenByName) {
  const test::TemporaryFolder folder;
  ObjectFile file;
  ErrorText error;
  ASSERT_TRUE(file.open(folder.write("file", twoSlices()), &error));
  const struct {
    std::vector<std::string> archs;
    std::string chosen, missing;
  } cases[] = {
      {{}, "armv7 arm64 ", ""},
      {{"armv7", "all"}, "armv7 arm64 ", ""},
      {{"arm64", "armv7"}, "arm64 armv7 ", ""},
      {{"armv7", "armv7s", "x86_64"}, "armv7 ", "armv7s"},
  };
  for (const auto& each : cases) {
    std::vector<const Slice*> chosen;
    std::string names, missing;
    EXPECT_EQ(chooseSlices(file, each.archs, &chosen, &missing), each.missing.empty());
    for (const Slice* slice : chosen) names += slice->archName + " ";
    EXPECT_EQ(names, each.chosen);
    EXPECT_EQ(missing, each.missing);
  }
}

}  // namespace
}  // namespace tovrek::macho
