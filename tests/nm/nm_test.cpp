// nm beside llvm-nm.

#include "macho/ArchName.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/listing/ListingTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using Words = std::vector<std::string>;

class Nm : public ListingTest {};

TEST_F(Nm, AsLlvmLists) {
  for (const std::string& path : {universal(), object("arm64")}) {
    for (const char* options : {"", "-j", "-a", "-g", "-u", "-U", "-n", "-p", "-r", "-nr", "-A",
                                "-gUj", "-m", "-gm", "-jA"}) {
      Words mine = {"nm"}, theirs = {TOVREK_LLVM_NM, "--arch=all"};
      if (*options != '\0') {
        mine.emplace_back(options);
        theirs.emplace_back(options);
      }
      mine.push_back(path);
      theirs.push_back(path);
      EXPECT_EQ(own(mine), host(theirs)) << options;
    }
  }
}

// Symbols that compilers seldom make: absolute, indirect, common, of the debugger, of no section.
TEST_F(Nm, RareSymbolsInBothByteOrders) {
  for (const TestArch& arch : {kPpc, kPpc64, kArm64}) {
    MachOBuilder builder(arch);
    builder.symbols.clear();
    for (const int type : {0x01, 0x02, 0x03, 0x0e, 0x0f, 0x1e, 0x24, 0x64}) {
      builder.symbols.push_back(
          {1, static_cast<uint8_t>(type), static_cast<uint8_t>(type == 0x0e ? 2 : 1)});
    }
    const std::string path = folder_.write("rare", builder.build());
    for (const char* options : {"-ap", "-p", "-pm", "-pg"}) {
      EXPECT_EQ(own({"nm", options, path}), host({TOVREK_LLVM_NM, options, path})) << arch.name;
    }
  }
}

TEST_F(Nm, SlicesFilesAndUsage) {
  const std::string fat = folder_.write("fat", buildFat({{kArmv7, MachOBuilder(kArmv7).build()},
                                                         {kArm64, MachOBuilder(kArm64).build()}}));
  const std::string text = folder_.write("text", "text");
  const std::string unknown = std::string(macho::kUnknownArchFlag) + ": -arch x87\n";
  const Answer cases[] = {
      {{"-j", fat}, 0, "\n" + fat + " (for architecture arm64):\n", ""},
      {{"-j", "-arch", "x86_64", fat}, 1, "", "does not contain architecture: x86_64\n"},
      {{"-arch", "x87", fat}, 1, "", unknown},
      {{text}, 1, "", text + ": The file was not recognized as a valid object file\n"},
      {{"/proc/self/exe"}, 1, "", "that of the host is another one in PATH\n"},
      {{}, 1, "", "can't open file: a.out (No such file or directory)\n"},
      {{"-z", text}, 1, "", "unknown option \"-z\"\n"},
      {{"-uU", text}, 1, "", "-u and -U can't be used together\n"},
      {{"--help"}, 0, "Usage: nm", ""},
  };
  for (const Answer& each : cases) expectAnswer("nm", each);
  EXPECT_THAT(own({"nm", "-arch", "arm64", fat}), testing::Not(HasSubstr("for architecture")));
}

}  // namespace
}  // namespace tovrek::test
