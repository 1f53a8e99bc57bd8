// The companion `lipo` beside LLVM's.
#include <fmt/format.h>

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
};

TEST_F(LipoTest, TakesPartsOutAndPutsOthersIn) {
  struct Case {
    std::vector<std::string> words;
    std::string archs;
  };
  const Case cases[] = {
      {{"-remove", "arm64"}, "armv7 x86_64"},
      {{"-remove", "armv7", "-remove", "x86_64"}, "arm64"},
      {{"-extract", "x86_64", "-extract", "armv7"}, "armv7 x86_64"},
      {{"-replace", "armv7", "other"}, "armv7 arm64 x86_64"},
  };
  for (const Case& each : cases) {
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
  struct Case {
    std::vector<std::string> words;
    std::string reason;
  };
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
  for (const Case& each : cases) {
    std::vector<std::string> words = {"lipo", "-output", "out"};
    words.insert(words.end(), each.words.begin(), each.words.end());
    expectRun(words, 1, "", fmt::format("fatal error: {}: {}\n", companion("lipo"), each.reason));
    EXPECT_FALSE(fileExists(folder_.file("out")));
  }
}

}  // namespace
}  // namespace tovrek
