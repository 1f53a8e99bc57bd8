// Universal files: the checker's walk, the strict reader and layout, and the lipo companion.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/files.h"
#include "host/process.h"
#include "macho/ArchName.h"
#include "macho/FatFile.h"
#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::buildFat;
using test::checkBytes;
using test::kArm64;
using test::kArmv7;
using test::MachOBuilder;
using test::ScopedEnvironment;
using test::stored;
using test::TemporaryFolder;

std::string image(const test::TestArch& arch) {
  return MachOBuilder(arch).build();
}

std::string badImage(const test::TestArch& arch) {
  MachOBuilder b(arch);
  b.header["flags"] = 2;
  return b.build();
}

TEST(FatCheck, WalksSlicesInOrderUpToAnUnknownOne) {
  const test::TestArch unknown{"", false, false, 99, 0};
  const test::TestArch order{"", true, false, 0, 0};
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, image(kArmv7)}, {kArm64, image(kArm64)}})), "ok");
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, image(kArmv7)}, {kArm64, badImage(kArm64)}})), "1108");
  EXPECT_EQ(checkBytes(buildFat({{unknown, "x"}, {kArm64, badImage(kArm64)}})), "ok");
  EXPECT_EQ(checkBytes(buildFat({{kArmv7, image(kArm64)}})), "1104");
  std::string file = buildFat({{kArm64, image(kArm64)}});
  test::patch(&file, 16, stored(order, 0xfffffff0, 4));
  EXPECT_EQ(checkBytes(file), "1104") << "offset beyond the file";
  file = buildFat({{kArm64, image(kArm64)}});
  test::patch(&file, 4, stored(order, 0xffffffff, 4));
  EXPECT_EQ(checkBytes(file), "ok") << "the zeros behind the table are an unknown architecture";
  EXPECT_EQ(checkBytes(std::string("\xca\xfe\xba\xbe\xff\xff\xff\xff", 8)), "1104");
}

TEST(FatCheck, OverlappingSlicesAreNotCheckedAgainAndAgain) {
  const std::vector<test::FatMember> members(3, {kArm64, image(kArm64)});
  std::string file = test::buildFat(members);
  const test::TestArch order{"", true, false, 0, 0};
  for (int i = 0; i < 3; ++i) {
    test::patch(&file, 8 + 20 * i + 8, test::stored(order, 0x4000, 4));
    test::patch(&file, 8 + 20 * i + 12, test::stored(order, file.size() - 0x4000, 4));
  }
  EXPECT_EQ(checkBytes(file), "1104");
}

TEST(FatFile, RefusesWhatLiesOutsideOrOverlaps) {
  const test::TestArch order{"", true, false, 0, 0};
  const std::string good = buildFat({{kArmv7, image(kArmv7)}, {kArm64, image(kArm64)}});
  struct BoundsCase {
    uint64_t at;
    uint32_t word;
    const char* error;
  };
  const BoundsCase cases[] = {
      {4, 0x80000000, "table of 2147483648 architectures extends beyond the file"},
      {16, 40, "slice at offset 40 overlaps what ends at 48"},
      {20, 0x4001, "slice at offset 32768 overlaps what ends at 32769"},
      {36, 0xffffffff, "slice 1 extends beyond the file"},
      {40, 0x4001, "slice 1 extends beyond the file"},
  };
  for (const BoundsCase& each : cases) {
    std::string file = good;
    test::patch(&file, each.at, stored(order, each.word, 4));
    macho::FatFile out;
    ErrorText error;
    const bool read = macho::FatFile::read(std::as_bytes(std::span(file)), &out, &error);
    EXPECT_FALSE(read);
    EXPECT_EQ(error.text(), each.error);
  }
  macho::FatFile out;
  ErrorText error;
  ASSERT_TRUE(macho::FatFile::read(std::as_bytes(std::span(good)), &out, &error));
  ASSERT_EQ(out.slices.size(), 2u);
  EXPECT_EQ(out.slices[1].offset, 0x8000u);
  EXPECT_EQ(macho::fatFileHeader(out.slices), good.substr(0, 48));
  const std::string junk = "junk";
  EXPECT_FALSE(macho::FatFile::read(std::as_bytes(std::span(junk)), &out, &error));
  EXPECT_EQ(error.text(), "not a Mach-O file");

  std::vector<macho::FatSlice> large = {{12, 9, 0, 0xf0000000, 14}, {1, 0, 0, 0x20000000, 14}};
  EXPECT_TRUE(macho::layOutFatFile(large, nullptr));
  large.push_back({2, 0, 0, 1, 14});
  EXPECT_FALSE(macho::layOutFatFile(large, nullptr)) << "offsets have 32 bits";
}

class LipoTest : public testing::Test {
 protected:
  // Runs the built program; output and errors together.
  Outcome lipo(std::vector<std::string> arguments) {
    Command command;
    command.argv = {std::string(TOVREK_BUILT_FOLDER) + "/host/usr/bin/lipo"};
    command.argv.insert(command.argv.end(), arguments.begin(), arguments.end());
    command.standardError = StandardError::kMergeIntoOutput;
    Outcome outcome;
    EXPECT_TRUE(runProcess(command, &outcome));
    return outcome;
  }
  std::string fatal(const std::string& text) {
    return "fatal error: " + std::string(TOVREK_BUILT_FOLDER) + "/host/usr/bin/lipo: " + text +
           "\n";
  }

  TemporaryFolder folder_;
};

TEST_F(LipoTest, AnswersQuestions) {
  const std::string thin = folder_.write("thin", image(kArm64));
  const std::string fat =
      folder_.write("fat", buildFat({{kArmv7, image(kArmv7)}, {kArm64, image(kArm64)}}));
  EXPECT_EQ(lipo({"-info", thin}).output, "Non-fat file: " + thin + " is architecture: arm64\n");
  EXPECT_EQ(lipo({fat, "-info"}).output,
            "Architectures in the fat file: " + fat + " are: armv7 arm64 \n");
  EXPECT_EQ(lipo({"-archs", fat}).output, "armv7 arm64\n");
  EXPECT_EQ(lipo({fat, "-verify_arch", "armv7", "arm64"}).status, 0);
  EXPECT_EQ(lipo({fat, "-verify_arch", "armv7", "armv7s"}).status, 1);
  EXPECT_EQ(lipo({"-verify_arch", "arm64", thin}).status, 0);
  EXPECT_EQ(lipo({thin, "-verify_arch", "arm64e"}).status, 1);
  EXPECT_NE(lipo({fat, "-detailed_info"}).output.find("    offset 32768\n    size 16384\n"),
            std::string::npos);
}

TEST_F(LipoTest, SplitsAndJoinsBackToTheSameBytes) {
  const std::string seven = image(kArmv7), sixtyFour = image(kArm64);
  const std::string joined = buildFat({{kArmv7, seven}, {kArm64, sixtyFour}});
  const std::string fat = folder_.write("fat", joined);
  ::chmod(fat.c_str(), 0750);
  EXPECT_EQ(lipo({fat, "-thin", "armv7", "-output", folder_.file("7")}).status, 0);
  EXPECT_EQ(lipo({"-thin", "arm64", "-output", folder_.file("64"), fat}).status, 0);
  EXPECT_EQ(test::contentsOf(folder_.file("7")), seven);
  EXPECT_EQ(test::contentsOf(folder_.file("64")), sixtyFour);
  EXPECT_EQ(fileMode(folder_.file("7")), 0750u);
  const std::string out = folder_.file("out");
  EXPECT_EQ(lipo({folder_.file("7"), folder_.file("64"), "-create", "-output", out}).status, 0);
  EXPECT_EQ(test::contentsOf(out), joined);
  EXPECT_EQ(fileMode(out), 0755u);
}

TEST_F(LipoTest, RefusesWithoutTouchingTheOutput) {
  const std::string thin = folder_.write("thin", image(kArm64));
  const std::string fat = folder_.write("fat", buildFat({{kArm64, image(kArm64)}}));
  const std::string text = folder_.write("text", "no program");
  const std::string broken = folder_.write("broken", "\xca\xfe\xba\xbe\x7f\xff\xff\xff");
  const std::string out = folder_.write("out", "as it was");
  struct RefusalCase {
    std::vector<std::string> arguments;
    std::string error;
  };
  const RefusalCase cases[] = {
      {{thin, "-thin", "arm64", "-output", out},
       "input file (" + thin + ") must be a fat file when the -thin option is specified"},
      {{fat, "-thin", "armv7", "-output", out},
       "fat input file (" + fat +
           ") does not contain the specified architecture (armv7) to thin it to"},
      {{thin, fat, "-create", "-output", out},
       thin + " and " + fat +
           " have the same architectures (arm64) and can't be in the same fat output file"},
      {{text, "-create", "-output", out}, "can't figure out the architecture type of: " + text},
      {{broken, "-info"},
       "malformed fat file: " + broken +
           " (table of 2147483647 architectures extends beyond the file)"},
      {{"-create", "-output", out}, "no input files specified"},
      {{thin, "-create"}, "no output file specified"},
      {{thin, "-thin", "z80", "-output", out},
       std::string(macho::kUnknownArchFlag) + ": -thin z80"},
      {{thin, "-wings"}, "unknown flag: -wings"},
      {{folder_.file("none"), "-info"},
       "can't open input file: " + folder_.file("none") + " (No such file or directory)"},
  };
  for (const RefusalCase& each : cases) {
    const Outcome outcome = lipo(each.arguments);
    EXPECT_EQ(outcome.output, fatal(each.error));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(test::contentsOf(out), "as it was");
  }
}

}  // namespace
}  // namespace tovrek
