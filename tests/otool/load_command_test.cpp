// otool -l, -h, -f, -L and -D.

#include "macho/ArchName.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/listing/ListingTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using Words = std::vector<std::string>;

class LoadCommands : public ListingTest {
 protected:
  // Both verbosities of everything that has two; -l of llvm-otool shows the header too.
  void expectAsLlvm(const std::string& path) {
    for (const bool verbose : {false, true}) {
      Words theirs = {TOVREK_LLVM_OBJDUMP, "-m", "--private-headers", "--arch=all", path};
      if (!verbose) theirs.insert(theirs.begin() + 1, "--non-verbose");
      EXPECT_EQ(normalised(own({"otool", verbose ? "-hlv" : "-hl", path})),
                normalised(host(theirs)));
    }
  }

  // LLVM 14 spells platforms and tools in lower case, in either verbosity, and puts the SDK in
  // front of the minimum and blanks elsewhere. It knows neither READ_ONLY nor newer section types.
  static std::string normalised(std::string text) {
    text = replaced(text, "      cmd LC_BUILD_VERSION\n *cmdsize (\\d+)\n *platform \\S+\n",
                    "BUILD \\1\n");
    text = replaced(text, " *(sdk \\S+)\n *(minos \\S+)\n *ntools", " \\2\n \\1\n ntools");
    text = replaced(text, " *(minos \\S+)\n *(sdk \\S+)\n *ntools", " \\1\n \\2\n ntools");
    text = replaced(text, "\n +BUILD", "\nBUILD");
    text = replaced(text, " *tool \\S+\n *version", " tool\n version");
    return replaced(text, "0x00000010 \\(unknown flags\\)", "READ_ONLY");
  }

  static TestCommand command(uint32_t cmd, const std::vector<std::pair<uint32_t, uint64_t>>& fields,
                             const std::string& tail = "") {
    TestCommand result;
    result.fields.number("cmd", 4, cmd).number("cmdsize", 4, 0);
    int index = 0;
    for (const auto& [width, value] : fields) {
      result.fields.number("field" + std::to_string(index++), width, value);
    }
    // The builder pads nothing. Texts end at a multiple of eight.
    const uint64_t unit = tail.empty() ? 4 : 8;
    uint64_t size = 8 + tail.size();
    for (const auto& field : fields) size += field.first;
    result.tail = tail + std::string((unit - size % unit) % unit, '\0');
    return result;
  }

  // An image with every kind of command that LLVM lists.
  static std::string imageOfAllKinds(const TestArch& arch) {
    MachOBuilder builder(arch);
    for (const uint32_t cmd : {0xcu, 0x80000018u, 0x8000001fu, 0x20u, 0x80000023u}) {
      builder.addDylib("/usr/lib/lib" + std::to_string(cmd) + ".dylib", cmd);
    }
    builder.add(command(0xf, {{4, 12}}, "/usr/lib/dyld"))
        .add(command(0x27, {{4, 12}}, "A=b"))
        .add(command(0x8000001c, {{4, 12}}, "@loader_path/Frameworks"))
        .add(command(0x12, {{4, 12}}, "Umbrella"))
        .add(command(0x13, {{4, 12}}, "Sub"))
        .add(command(0x14, {{4, 12}}, "Client"))
        .add(command(0x15, {{4, 12}}, "Library"))
        .add(command(0x2a, {{8, (uint64_t{1} << 40) | (2u << 30) | (3u << 20) | (4u << 10) | 5}}))
        .add(command(0x2d, {{4, 2}}, std::string("-lz\0-framework", 14)))
        .add(command(0x31, {{8, 0x6e776f}, {8, 0}, {8, 0x3f00}, {8, 16}}))
        .add(command(0x32, {{4, 2}, {4, 0xc0000}, {4, 0xd0102}, {4, 1}, {4, 3}, {4, 0x2610000}}))
        .add(command(0x2e, {{4, 0x3f20}, {4, 0}}))
        .add(command(0x80000033, {{4, 0x3f20}, {4, 0}}))
        .add(command(0x99, {{4, 1}, {4, 2}}));
    if (arch.is64) {
      builder.add(
          command(0x1a, {{8, 0x1000}, {8, 2}, {8, 3}, {8, 4}, {8, 5}, {8, 6}, {8, 7}, {8, 8}}));
    } else {
      builder.add(
          command(0x11, {{4, 0x1000}, {4, 2}, {4, 3}, {4, 4}, {4, 5}, {4, 6}, {4, 7}, {4, 8}}));
    }
    return builder.build();
  }
};

TEST_F(LoadCommands, EveryKindInBothWidthsAndByteOrders) {
  std::vector<FatMember> members;
  for (const TestArch& arch : kSixArchs) {
    SCOPED_TRACE(arch.name);
    expectAsLlvm(folder_.write(arch.name, imageOfAllKinds(arch)));
    members.push_back({arch, imageOfAllKinds(arch)});
  }
  expectAsLlvm(folder_.write("fat", buildFat(members)));
}

// Kinds that exclude each other, one image for each.
TEST_F(LoadCommands, KindsOfTheirOwnImages) {
  std::vector<std::pair<uint32_t, uint64_t>> arm64{{4, 6}, {4, 68}}, x86{{4, 4}, {4, 42}},
      arm{{4, 1}, {4, 17}}, i386{{4, 1}, {4, 16}}, nested{{4, 7}, {4, 44}, {4, 4}, {4, 42}};
  for (uint64_t i = 1; i <= 33; ++i) arm64.emplace_back(8, i << 33 | i);
  arm64.insert(arm64.end(), {{4, 0x60000000}, {4, 0}});
  for (uint64_t i = 1; i <= 21; ++i) x86.emplace_back(8, i << 40 | i);
  nested.insert(nested.end(), x86.begin() + 2, x86.end());
  for (uint64_t i = 1; i <= 17; ++i) arm.emplace_back(4, i);
  for (uint64_t i = 1; i <= 16; ++i) i386.emplace_back(4, i);
  const struct {
    TestArch arch;
    TestCommand command;
  } cases[] = {
      {kArm64, command(0x4, arm64)},
      {kX86_64, command(0x5, x86)},
      {kX86_64, command(0x5, nested)},
      {kArmv7, command(0x5, arm)},
      {kI386, command(0x5, i386)},
      {kArm64, command(0x24, {{4, 0xa0e02}, {4, 0}})},
      {kArmv7, command(0x25, {{4, 0xa0300}, {4, 0xb0102}})},
      {kArm64, command(0x2f, {{4, 0xa0300}, {4, 0xb0102}})},
      {kArm64, command(0x30, {{4, 0xa0300}, {4, 0xb0102}})},
      {kArm64, command(0x1d, {{4, 0x3f20}, {4, 16}})},
      {kArm64, command(0x2c, {{4, 0x1000}, {4, 0x1000}, {4, 1}, {4, 0}})},
      {kArmv7, command(0x21, {{4, 0x1000}, {4, 0x1000}, {4, 0}})},
      {kArm64, command(0x80000034, {{4, 0x3f20}, {4, 48}})},
  };
  for (const auto& c : cases) {
    MachOBuilder builder(c.arch);
    const uint32_t cmd = static_cast<uint32_t>(TestCommand(c.command).fields["cmd"]);
    SCOPED_TRACE(cmd);
    for (const uint32_t other :
         {0x4u, 0x5u, 0x80000028u, 0x24u, 0x25u, 0x1du, 0x21u, 0x2cu, 0x32u}) {
      builder.remove(other);
    }
    expectAsLlvm(folder_.write("one", builder.add(c.command).build()));
  }
}

// Kinds that LLVM 14 lists without their fields, or otherwise than the original does.
TEST_F(LoadCommands, KindsThatLlvmDoesNotKnow) {
  const struct {
    TestCommand command;
    std::string expected;
  } cases[] = {
      {command(0x16, {{4, 4096}, {4, 3}}),
       "     cmd LC_TWOLEVEL_HINTS\n cmdsize 16\n  offset 4096\n  nhints 3\n"},
      {command(0x3, {{4, 99999}, {4, 3}}),
       "     cmd LC_SYMSEG\n cmdsize 16\n  offset 99999 (past end of file)\n"
       "    size 3 (past end of file)\n"},
      {command(0x17, {{4, 0x1234}, {4, 0}}),
       "     cmd LC_PREBIND_CKSUM\n cmdsize 16 Incorrect size\n   cksum 0x00001234\n"},
      {command(0x6, {{4, 20}, {4, 1}, {4, 0x1000}}, "/fvm"),
       "         name /fvm (offset 20)\nminor version 1\n  header addr 0x00001000\n"},
      {command(0x8, {}, "one"), "          cmd LC_IDENT\n      cmdsize 16\n ident string #1 one\n"},
      {command(0x80000035, {{8, 0x1000}, {8, 8192}, {4, 32}, {4, 0}}, "com.x"),
       "       vmaddr 0x1000\n      fileoff 8192\n     entry_id com.x (offset 32)\n"
       "     reserved 0\n"},
      {command(0x36, {{4, 16}, {4, 8}}),
       "      cmd LC_ATOM_INFO\n  cmdsize 16\n  dataoff 16\n datasize 8\n"},
      {command(0x32, {{4, 2}, {4, 0xc0000}, {4, 0}, {4, 2}, {4, 3}, {4, 0x2610000}}),
       " platform 2\n    minos 12.0\n      sdk n/a\n   ntools 2\n     tool 3\n  version 609.0\n"},
      {command(0xe, {{4, 400}}), "         name ?(bad offset 400)\n"},
  };
  for (const auto& c : cases) {
    const std::string path = folder_.write("one", MachOBuilder(kArm64).add(c.command).build());
    EXPECT_THAT(run({"otool", "-l", path}).output, HasSubstr(c.expected));
  }
  EXPECT_THAT(
      run({"otool", "-lv",
           folder_.write("one", MachOBuilder(kArm64).add(cases[7].command).build())})
          .output,
      HasSubstr(" platform IOS\n    minos 12.0\n      sdk n/a\n   ntools 2\n     tool LD\n"));
}

TEST_F(LoadCommands, CompiledPrograms) {
  for (const Words& options :
       {Words{}, Words{"-bundle"}, Words{"-dylib", "-install_name", "@rpath/A.dylib"}}) {
    expectAsLlvm(linked(options));
  }
  const std::string library = folder_.file("linked");
  EXPECT_EQ(own({"otool", "-D", library}), library + ":\n@rpath/A.dylib\n");
  EXPECT_EQ(own({"otool", "-XD", library}), "@rpath/A.dylib\n");
  const std::string fat = universal();
  expectAsLlvm(fat);
  for (const bool verbose : {false, true}) {
    Words theirs = {TOVREK_LLVM_OBJDUMP, "-m", "--universal-headers", fat};
    if (!verbose) theirs.insert(theirs.begin() + 1, "--non-verbose");
    const std::string listing = host(theirs);
    EXPECT_THAT(listing, HasSubstr(own({"otool", verbose ? "-fv" : "-f", fat})));
  }
  // The -L of LLVM names the architecture where it shows one of several.
  EXPECT_EQ(own({"otool", "-L", fat}),
            host({TOVREK_LLVM_OBJDUMP, "-m", "--dylibs-used", "--arch=all", fat}));
}

TEST_F(LoadCommands, SlicesFilesAndUsage) {
  const std::string fat = folder_.write(
      "Bob's App",
      buildFat({{kArmv7, MachOBuilder(kArmv7).build()}, {kArm64, MachOBuilder(kArm64).build()}}));
  const std::string text = folder_.write("text", "text");
  const std::string arm64 = own({"otool", "-l", "-arch", "arm64", fat});
  EXPECT_THAT(arm64, testing::StartsWith(fat + " (architecture arm64):\nLoad command 0\n"));
  EXPECT_THAT(arm64, testing::Not(HasSubstr("architecture armv7")));
  EXPECT_EQ(own({"otool", "-l", fat}), own({"otool", "-l", "-arch", "armv7", fat}) + arm64);
  // A caller that puts a backslash before the apostrophe inside double quotes means the apostrophe.
  EXPECT_EQ(own({"otool", "-l", folder_.file("Bob\\'s App")}), own({"otool", "-l", fat}));
  const std::string unknown = std::string(macho::kUnknownArchFlag) + ": -arch x87\n";
  const Answer cases[] = {
      {{"-l", text}, 0, text + ": is not an object file\n", ""},
      {{"-l", "nobody"}, 1, "", "can't open file: nobody (No such file or directory)\n"},
      {{"-l", "-arch", "x86_64", fat}, 1, "", "does not contain architecture: x86_64\n"},
      {{"-l", "-arch", "x87", fat}, 1, "", unknown},
      {{"-l"}, 1, "", "at least one file must be specified\n"},
      {{text}, 1, "", "one of -f, -h, -l, -L, -D or -o must be specified\n"},
      {{"-q", text}, 1, "", "option \"-q\" is not offered by this otool\n"},
      {{"-z", text}, 1, "", "unknown option \"-z\"\n"},
      {{"--help"}, 0, "Usage: otool", ""},
  };
  for (const Answer& each : cases) expectAnswer("otool", each);
}

}  // namespace
}  // namespace tovrek::test
