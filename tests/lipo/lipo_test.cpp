// The companion `lipo` beside LLVM's.
#include <fmt/format.h>
#include <sys/stat.h>

#include "host/files.h"
#include "macho/ArchName.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/MachOBuilder.h"

namespace tovrek {
namespace {

class LipoTest : public test::CompanionTest {
 protected:
  LipoTest() {
    folder_.write("v7", test::MachOBuilder(test::kArmv7).build());
    folder_.write("a64", test::MachOBuilder(test::kArm64).build());
    folder_.write("x64", test::MachOBuilder(test::kX86_64).build() + "padding");
    folder_.write("other", test::MachOBuilder(test::kArmv7).build() + "another");
    expectRun({"lipo", "-create", "v7", "-arch", "arm64", "a64", "x64", "-output", "fat"}, 0, "");
  }

  std::string contents(const std::string& name) { return test::contentsOf(folder_.file(name)); }

  // The bytes of one slice as LLVM's program takes it out.
  std::string slice(const std::string& file, const std::string& arch) {
    Command command;
    command.argv = {TOVREK_LLVM_LIPO, file, "-thin", arch, "-output", "slice"};
    command.workingDirectory = folder_.path();
    Outcome outcome;
    ErrorText error;
    EXPECT_TRUE(runProcess(command, &outcome, &error)) << error.text();
    EXPECT_EQ(outcome.status, 0) << file << " " << arch;
    return contents("slice");
  }

  struct Case {
    std::vector<std::string> words;
    std::string reason;
  };
  void expectRefusal(const Case& refused) {
    std::vector<std::string> words = refused.words;
    words.insert(words.begin(), "lipo");
    expectRun(words, 1, "",
              fmt::format("fatal error: {}: {}\n", companion("lipo"), refused.reason));
  }
};

TEST_F(LipoTest, TakesPartsOutAndPutsOthersIn) {
  const struct {
    std::vector<std::string> words;
    std::string archs;
  } cases[] = {
      {{"-remove", "arm64"}, "armv7 x86_64"},
      {{"-remove", "armv7", "-remove", "x86_64"}, "arm64"},
      {{"-extract", "x86_64", "-extract", "armv7"}, "armv7 x86_64"},
      {{"-replace", "armv7", "other"}, "armv7 arm64 x86_64"},
  };
  for (const auto& each : cases) {
    std::vector<std::string> words = {"lipo", "fat", "-output", "out"};
    words.insert(words.end(), each.words.begin(), each.words.end());
    expectRun(words, 0, "");
    expectRun({"lipo", "-archs", "out"}, 0, each.archs + "\n");
    for (const auto& [arch, file] :
         {std::pair("armv7", "v7"), {"arm64", "a64"}, {"x86_64", "x64"}}) {
      if (each.archs.find(arch) == std::string::npos) continue;
      const bool replaced = each.words.back() == "other" && arch == each.words[1];
      EXPECT_EQ(slice("out", arch), contents(replaced ? "other" : file)) << arch;
    }
  }
}

TEST_F(LipoTest, RefusesWhatMakesNoSense) {
  const Case cases[] = {
      {{"fat", "-remove", "i386"},
       "-remove i386 specified but fat file: fat does not contain that architecture"},
      {{"fat", "-remove", "armv7", "-remove", "arm64", "-remove", "x86_64"},
       "-remove's specified would result in an empty fat file"},
      {{"v7", "-extract", "armv7"},
       "input file (v7) must be a fat file when the -extract option is specified"},
      {{"fat", "-replace", "armv7", "a64"},
       "specified architecture type (armv7) for replacement file (a64) does not match its cputype "
       "and cpusubtype"},
      {{"-create", "-arch", "armv7", "a64"},
       "specified architecture type (armv7) for file (a64) does not match its cputype and "
       "cpusubtype"},
      {{"fat", "-extract", "sparc"}, fmt::format("{}: -extract sparc", macho::kUnknownArchFlag)},
      {{"fat", "-extract", "armv7", "-thin", "armv7"},
       "only one action can be specified, not -thin too"},
      {{"fat", "-replace", "armv7"}, "missing argument to -replace option"},
  };
  for (Case each : cases) {
    each.words.insert(each.words.begin(), {"-output", "out"});
    expectRefusal(each);
    EXPECT_FALSE(fileExists(folder_.file("out")));
  }
}

TEST_F(LipoTest, AnswersQuestions) {
  expectRun({"lipo", "-info", "a64"}, 0, "Non-fat file: a64 is architecture: arm64\n");
  expectRun({"lipo", "fat", "-info"}, 0,
            "Architectures in the fat file: fat are: armv7 arm64 x86_64 \n");
  expectRun({"lipo", "-archs", "fat"}, 0, "armv7 arm64 x86_64\n");
  expectRun({"lipo", "fat", "-verify_arch", "armv7", "arm64"}, 0, "");
  expectRun({"lipo", "fat", "-verify_arch", "armv7", "armv7s"}, 1, "");
  expectRun({"lipo", "-verify_arch", "arm64", "a64"}, 0, "");
  expectRun({"lipo", "a64", "-verify_arch", "arm64e"}, 1, "");
  EXPECT_NE(run({"lipo", "fat", "-detailed_info"})
                .output.find("    offset 32768\n    size 16384\n    align 2^14 (16384)\n"),
            std::string::npos);
}

TEST_F(LipoTest, SplitsAndJoinsBackToTheSameBytes) {
  const std::string joined =
      test::buildFat({{test::kArmv7, contents("v7")}, {test::kArm64, contents("a64")}});
  ::chmod(folder_.write("two", joined).c_str(), 0750);
  expectRun({"lipo", "two", "-thin", "armv7", "-output", "7"}, 0, "");
  expectRun({"lipo", "-thin", "arm64", "-output", "64", "two"}, 0, "");
  EXPECT_EQ(contents("7"), contents("v7"));
  EXPECT_EQ(contents("64"), contents("a64"));
  EXPECT_EQ(fileMode(folder_.file("7")), 0750u);
  expectRun({"lipo", "7", "64", "-create", "-output", "out"}, 0, "");
  EXPECT_EQ(contents("out"), joined);
  EXPECT_EQ(fileMode(folder_.file("out")), 0755u);
}

TEST_F(LipoTest, RefusesWithoutTouchingTheOutput) {
  folder_.write("text", "no program");
  folder_.write("broken", "\xca\xfe\xba\xbe\x7f\xff\xff\xff");
  folder_.write("out", "as it was");
  const Case cases[] = {
      {{"v7", "-thin", "armv7", "-output", "out"},
       "input file (v7) must be a fat file when the -thin option is specified"},
      {{"fat", "-thin", "i386", "-output", "out"},
       "fat input file (fat) does not contain the specified architecture (i386) to thin it to"},
      {{"a64", "fat", "-create", "-output", "out"},
       "a64 and fat have the same architectures (arm64) and can't be in the same fat output file"},
      {{"text", "-create", "-output", "out"}, "can't figure out the architecture type of: text"},
      {{"broken", "-info"},
       "malformed fat file: broken (table of 2147483647 architectures extends beyond the file)"},
      {{"-create", "-output", "out"}, "no input files specified"},
      {{"v7", "-create"}, "no output file specified"},
      {{"v7", "-thin", "z80", "-output", "out"},
       std::string(macho::kUnknownArchFlag) + ": -thin z80"},
      {{"v7", "-wings"}, "unknown flag: -wings"},
      {{"none", "-info"}, "can't open input file: none (No such file or directory)"},
  };
  for (const Case& each : cases) {
    expectRefusal(each);
    EXPECT_EQ(contents("out"), "as it was");
  }
}

}  // namespace
}  // namespace tovrek
