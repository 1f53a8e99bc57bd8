// The engine against files that other programs made, and the image builder against a program that
// reads such files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "engine/MachORebuildLib.h"
#include "host/process.h"
#include "tests/engine/EngineRun.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

using test::MachOBuilder;

bool isFound(std::string_view program) {
  return !program.empty() && !program.ends_with("-NOTFOUND");
}

// What the program prints on both streams; a failing program fails the test.
std::string run(const std::vector<std::string>& argv,
                std::vector<std::pair<std::string, std::string>> environment = {}) {
  Command command{.argv = argv, .standardError = StandardError::kMergeIntoOutput};
  command.environment = std::move(environment);
  Outcome outcome;
  EXPECT_TRUE(runProcess(command, &outcome)) << argv[0];
  EXPECT_EQ(outcome.status, 0) << testing::PrintToString(argv) << outcome.output;
  return outcome.output;
}

std::string objdump(const std::string& path, const std::vector<std::string>& options) {
  std::vector<std::string> argv = {TOVREK_LLVM_OBJDUMP, "--macho"};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.push_back(path);
  return run(argv);
}

constexpr char kSource[] = R"(
extern int puts(const char* text);
extern unsigned long strlen(const char* text);
int counter = 3;
int* pointer = &counter;
static int hidden(int x) { return x + counter; }
__attribute__((constructor)) static void start(void) { puts("start"); }
static void finish(void) { puts("end"); }
__attribute__((used, section("__DATA,__mod_term_func,mod_term_funcs")))
static void (*const terminator)(void) = finish;
int exported(int x) { return hidden(x) * 2; }
int main(void) {
#ifdef EVEN
  unsigned long (*volatile length)(const char*) = strlen;
  (void)length;
#endif
  return exported(*pointer);
}
)";

class LinkedProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!isFound(TOVREK_CLANG) || !isFound(TOVREK_LD64_LLD) || !isFound(TOVREK_LLVM_STRIP)) {
      GTEST_SKIP() << "clang, ld64.lld or llvm-strip is missing";
    }
  }

  std::string link(const std::string& name, const std::vector<std::string>& options,
                   std::vector<std::pair<std::string, std::string>> environment = {}) {
    const std::string source = folder_.write("source.c", kSource);
    std::vector<std::string> argv = {"bash", std::string(TOVREK_SOURCE_DIR) + "/demo/link.sh",
                                     folder_.file(name), source, "arm64"};
    argv.insert(argv.end(), options.begin(), options.end());
    environment.emplace_back("CLANG", TOVREK_CLANG);
    if (environment.size() == 1) environment.emplace_back("LD64_LLD", TOVREK_LD64_LLD);
    run(argv, environment);
    return folder_.file(name);
  }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment hostRoot_{"TOVREK_HOST_ROOT", std::string(TOVREK_BUILT_FOLDER) + "/host"};
};

TEST_F(LinkedProgramTest, KindsWithAndWithoutSymbolsAreAccepted) {
  // Stripping puts the string pool behind the indirect symbols of 4 bytes each; with an even
  // number of these it starts at a multiple of 8.
  const std::pair<const char*, std::vector<std::string>> kinds[] = {
      {"executable", {"-DEVEN", "-e", "_main"}},
      {"bare", {"-DEVEN", "-e", "_main", "-dead_strip", "-no_function_starts", "-S"}},
      {"dylib", {"-DEVEN", "-dylib", "-install_name", "@rpath/Own.dylib", "-no_encryption"}},
      {"bundle", {"-DEVEN", "-bundle", "-no_encryption"}}};
  for (const auto& [name, options] : kinds) {
    const std::string path = link(name, options);
    EXPECT_EQ(test::checkAt(path), "ok") << name;
    for (const char* option : {"-x", "-S", "--strip-all"}) {
      const std::string stripped = path + option;
      run({TOVREK_LLVM_STRIP, option, "-o", stripped, path});
      EXPECT_EQ(test::checkAt(stripped), "ok") << name << " " << option;
    }
    // Damage that such a file shows at once.
    std::string bytes = test::contentsOf(path);
    EXPECT_EQ(test::checkBytes(bytes.substr(0, bytes.size() - 16)), "1122") << name;
    bytes[27] = 2;  // the highest byte of the flags
    EXPECT_EQ(test::checkBytes(bytes), "1108") << name;
  }
}

// What a linker may well write, and the rules refuse.
TEST_F(LinkedProgramTest, KindsThatAreRefused) {
  EXPECT_EQ(test::checkAt(link("dylib", {"-dylib", "-install_name", "@rpath/Own.dylib"})), "1138")
      << "only executables are encrypted";
  const std::string odd = link("odd", {"-e", "_main"});
  EXPECT_EQ(test::checkAt(odd), "ok");
  run({TOVREK_LLVM_STRIP, odd});
  EXPECT_EQ(test::checkAt(odd), "1148") << "the string pool starts in the middle of a pointer";
  EXPECT_EQ(test::checkAt(odd, {.rules = macho::kModernRules}), "ok");
}

TEST_F(LinkedProgramTest, InsertionChangesTheCommandsAlone) {
  const std::string path = link("program", {"-e", "_main"});
  const std::string before = test::contentsOf(path);
  testing::internal::CaptureStderr();
  EXPECT_EQ(test::insertAt(path), "ok");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), " final  ldCmdOrdOfOrvDylib 3 \n");
  const std::string after = test::contentsOf(path);
  EXPECT_EQ(test::checkAt(path), "ok");

  ASSERT_EQ(after.size(), before.size());
  const auto sizeOfCommands = [](const std::string& bytes) {
    return static_cast<uint8_t>(bytes[20]) + 256U * static_cast<uint8_t>(bytes[21]);
  };
  EXPECT_EQ(sizeOfCommands(after), sizeOfCommands(before) + 80 + 88);
  EXPECT_EQ(after[16], before[16] + 2);
  EXPECT_EQ(after.substr(0, 16), before.substr(0, 16));
  EXPECT_EQ(after.substr(24, 8), before.substr(24, 8));
  const size_t end = 32 + sizeOfCommands(after);
  EXPECT_TRUE(test::sameBytes(after.substr(end), before.substr(end)));
  if (!isFound(TOVREK_LLVM_OBJDUMP)) return;
  const std::string libraries = objdump(path, {"--dylibs-used"});
  EXPECT_THAT(libraries, HasSubstr("OrvaneDylib.bundle/OrvaneDylib.dylib"));
  EXPECT_LT(libraries.find("/usr/lib/libSystem"), libraries.find("OrvaneDylib.dylib"));
  EXPECT_LT(libraries.find("OrvaneDylib.dylib"), libraries.find("OrvaneLogger"));
}

TEST_F(LinkedProgramTest, JoinedAndSignedOutputIsAccepted) {
  const std::string path = link("program", {"-e", "_main"});
  const MachORebuildLib engine;
  int32_t code = 0;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(engine.insertBinaryType(kApplication, false, path, &code));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(code, 0);
  run({"/usr/bin/codesign", "-s", "-", path});
  EXPECT_EQ(test::checkAt(path), "ok");
  run({"/usr/bin/codesign", "-f", "-s", "-", path});
  EXPECT_EQ(test::checkAt(path), "ok") << "signed again";
  EXPECT_TRUE(engine.checkOrderSDKLibraryType(false, path, &code));
}

class ChainedProgramTest : public LinkedProgramTest {
 protected:
  void SetUp() override {
    LinkedProgramTest::SetUp();
    if (!isFound(TOVREK_LD64_LLD_19) || !isFound(TOVREK_LLVM_OBJDUMP_19)) {
      GTEST_SKIP() << "ld64.lld or llvm-objdump of version 19 is missing";
    }
  }
  std::string linkChained(const std::string& name, std::vector<std::string> options) {
    options.push_back("-fixup_chains");
    return link(name, options, {{"LD64_LLD", TOVREK_LD64_LLD_19}, {"MIN", "14.0"}});
  }
};

TEST_F(ChainedProgramTest, KeepsItsFixupsWhenLibrariesAreInserted) {
  const std::string path = linkChained("program", {"-e", "_main"});
  EXPECT_EQ(test::checkAt(path), "1115");
  const auto tables = [&] {
    std::string text;
    for (const char* option : {"--chained-fixups", "--dyld-info", "--exports-trie"}) {
      text += run({TOVREK_LLVM_OBJDUMP_19, "--macho", "--arch=arm64", option, path});
    }
    return text.substr(text.find('\n'));
  };
  const std::string before = tables();
  EXPECT_THAT(before, HasSubstr("lib_ordinal = 1 (libSystem)"));
  EXPECT_THAT(before, HasSubstr("__mod_term_func"));
  EXPECT_THAT(before, HasSubstr("_exported"));
  const std::string image = test::contentsOf(path);

  Settings settings;
  settings.modernImages = settings.strictHeaderRoom = true;
  int32_t code = 0;
  testing::internal::CaptureStderr();
  EXPECT_TRUE(MachORebuildLib().insertBinaryType(kApplication, false, path, &code, settings));
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(tables(), before);
  run({"/usr/bin/codesign", "-s", "-", path});
  EXPECT_EQ(tables(), before) << "signed";
  EXPECT_EQ(test::checkAt(path, {.rules = macho::kModernRules}), "ok");

  // The terminator's place, taken out of its chain, shows that the chains are read.
  std::string damaged = image;
  const std::string place = before.substr(before.find("__mod_term_func"));
  const uint64_t address = std::stoull(place.substr(place.find("0x")), nullptr, 16);
  EXPECT_EQ(test::checkBytes(image, {.rules = macho::kModernRules}), "ok");
  damaged[address - 0x100000000 + 7] = '\x80';  // bound instead of slid
  EXPECT_THAT(test::checkBytes(damaged, {.rules = macho::kModernRules}),
              HasSubstr("has binding to external symbol"));
}

// As a linker makes them without further options, and strippers leave them.
TEST_F(ChainedProgramTest, LibrariesAndStrippedFilesAreAcceptedByTheModernRules) {
  const auto outcome = [](const std::string& path) {
    return test::checkAt(path, {.rules = macho::kModernRules});
  };
  const std::string dylib = link("dylib", {"-dylib", "-install_name", "@rpath/Own.dylib"});
  EXPECT_EQ(outcome(dylib), "ok") << "with an idle encryption command";
  for (const bool chained : {false, true}) {
    const std::vector<std::string> options = {"-e", "_main"};
    const std::string path = chained ? linkChained("chained", options) : link("odd", options);
    for (const char* option : {"-x", "-S", "--strip-all"}) {
      const std::string stripped = path + option;
      run({TOVREK_LLVM_STRIP, option, "-o", stripped, path});
      EXPECT_EQ(outcome(stripped), "ok") << path << " " << option;
    }
  }
}

struct ReadArch {
  test::TestArch arch;
  const char* magic;
  const char* name;
  const char* text;  // the address of the code
};

// The builder spells every offset itself; a program that knows nothing of it must read the same.
TEST(Builder, ImagesReadAsTheyWereMeant) {
  if (!isFound(TOVREK_LLVM_OBJDUMP)) GTEST_SKIP() << "llvm-objdump is missing";
  const ReadArch archs[] = {
      {test::kPpc, "MH_MAGIC ", "PPC ", "00002000"},
      {test::kPpc64, "MH_MAGIC_64", "PPC64", "0000000100001000"},
      {test::kI386, "MH_MAGIC ", "I386", "00002000"},
      {test::kX86_64, "MH_MAGIC_64", "X86_64", "0000000100001000"},
      {test::kArmv7, "MH_MAGIC ", "ARM ", "00002000"},
      {test::kArm64, "MH_MAGIC_64", "ARM64", "0000000100001000"},
  };
  const test::TemporaryFolder folder;
  for (const ReadArch& each : archs) {
    SCOPED_TRACE(each.arch.name);
    const std::string path = folder.write("image", MachOBuilder(each.arch).build());
    const std::string headers = objdump(path, {"-p"});
    EXPECT_THAT(headers, Not(HasSubstr("malformed")));
    for (const char* part : {each.magic, each.name, "EXECUTE    15", "NOUNDEFS DYLDLINK TWOLEVEL",
                             "segname __LINKEDIT", "sectname __mod_init_func", "nsyms 3",
                             "LC_FUNCTION_STARTS", "LC_DATA_IN_CODE", "LC_SEGMENT_SPLIT_INFO",
                             "name /usr/lib/libSystem.B.dylib (offset 24)", "nindirectsyms 2"}) {
      EXPECT_THAT(headers, HasSubstr(part));
    }
    EXPECT_THAT(headers, Not(HasSubstr("past end of file")));
    EXPECT_THAT(headers, Not(HasSubstr("Inconsistent")));

    const std::string text = each.text;
    EXPECT_THAT(objdump(path, {"-t"}), HasSubstr(text + " g     O __TEXT,__text _helper"));
    EXPECT_THAT(objdump(path, {"--indirect-symbols"}),
                HasSubstr("(__DATA,__la_symbol_ptr) 2 entries"));
    const std::string rebased = objdump(path, {"--rebase"});
    EXPECT_THAT(rebased, HasSubstr("__DATA   __mod_init_func    0x"));
    EXPECT_THAT(rebased, HasSubstr("__DATA   __la_symbol_ptr    0x"));
    EXPECT_THAT(objdump(path, {"--bind"}), HasSubstr("_printf"));
  }
}

}  // namespace
}  // namespace tovrek
