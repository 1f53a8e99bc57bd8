// Insertion of load commands into thin files: the bytes before and after.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "host/files.h"
#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::kArm64;
using test::kArmv7;
using test::MachOBuilder;
using test::stored;
using test::TestArch;

constexpr char kWrapper[] = "@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib";
constexpr char kLogger[] = "@executable_path/Frameworks/OrvaneLogger.framework/OrvaneLogger";
constexpr char kExtensionWrapper[] = "@executable_path/../../OrvaneDylib.bundle/OrvaneDylib.dylib";
constexpr char kExtensionLogger[] =
    "@executable_path/../../Frameworks/OrvaneLogger.framework/OrvaneLogger";

struct Inserted {
  std::string outcome, bytes, printed;
};

Inserted insert(const std::string& bytes, int binaryType = 2, bool libraryType = false,
                bool strict = false) {
  const test::TemporaryFolder folder;
  const std::string path = folder.write("image", bytes);
  Inserted result;
  testing::internal::CaptureStderr();
  Settings settings;
  settings.strictHeaderRoom = strict;
  result.outcome = test::insertAt(path, binaryType, libraryType, settings);
  result.printed = testing::internal::GetCapturedStderr();
  result.bytes = test::contentsOf(path);
  return result;
}

std::string newCommand(const std::string& name) {
  const size_t size = (name.size() + 32) & ~size_t{7};
  std::string command = stored(kArm64, 12, 4) + stored(kArm64, size, 4) + stored(kArm64, 24, 4) +
                        std::string(12, '\0') + name;
  command.resize(size);
  return command;
}

// What the file must hold: `added` at `at`, the commands behind it moved, all else as it was.
std::string expected(const MachOBuilder& b, const std::string& before, uint64_t at,
                     const std::string& added, uint32_t count) {
  std::string after = before;
  test::patch(&after, at + added.size(), before.substr(at, b.commandsEnd() - at));
  test::patch(&after, at, added);
  const uint64_t oldSize = b.commandsEnd() - b.headerSize();
  test::patch(&after, 16, stored(b.arch, b.commands.size() + count, 4));
  test::patch(&after, 20, stored(b.arch, oldSize + added.size(), 4));
  return after;
}

class InsertionTest : public testing::TestWithParam<TestArch> {};
INSTANTIATE_TEST_SUITE_P(Devices, InsertionTest, testing::Values(kArmv7, kArm64),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(InsertionTest, GoesBehindTheLastLibraryAndKeepsAllOtherBytes) {
  MachOBuilder b(GetParam());
  const std::string before = b.build();
  const uint64_t at = before.find("/usr/lib/libSystem.B.dylib") - 24;
  const uint64_t end = at + (b.arch.is64 ? 56 : 52);
  const Inserted app = insert(before);
  EXPECT_EQ(app.outcome, "ok");
  EXPECT_TRUE(test::sameBytes(
      app.bytes, expected(b, before, end, newCommand(kWrapper) + newCommand(kLogger), 2)));
  EXPECT_EQ(newCommand(kWrapper).size() + newCommand(kLogger).size(), 80u + 88u);
  EXPECT_EQ(app.printed, " final  ldCmdOrdOfOrvDylib 2 \n");
  EXPECT_EQ(test::checkBytes(app.bytes), "ok");

  EXPECT_EQ(
      insert(before, 1).bytes,
      expected(b, before, end, newCommand(kExtensionWrapper) + newCommand(kExtensionLogger), 2));
  for (int type : {0, 3, -1}) {
    const Inserted none = insert(before, type);
    EXPECT_EQ(none.outcome + none.printed, "ok");
    EXPECT_TRUE(test::sameBytes(none.bytes, before));
  }
}

TEST_P(InsertionTest, GoesBehindTheFirstCommandWithoutLibraries) {
  MachOBuilder b(GetParam());
  b.remove(12).addDylib("@rpath/Own.dylib", 13);
  const std::string before = b.build();
  const uint64_t firstEnd = b.headerSize() + b.commands.front().fields["cmdsize"];
  const Inserted result = insert(before);
  EXPECT_TRUE(test::sameBytes(
      result.bytes, expected(b, before, firstEnd, newCommand(kWrapper) + newCommand(kLogger), 2)));
  EXPECT_EQ(result.printed, " final  ldCmdOrdOfOrvDylib 65535 \n");
}

TEST_P(InsertionTest, EachKindOfLibraryCommandCounts) {
  for (uint32_t kind : {12U, 0x80000018U, 0x8000001fU, 32U, 0x80000023U}) {
    MachOBuilder b(GetParam());
    b.addDylib("@rpath/Last", kind).addPlain(0x1b, 24);
    const std::string before = b.build();
    const Inserted result = insert(before);
    EXPECT_EQ(result.printed, " final  ldCmdOrdOfOrvDylib 3 \n");
    EXPECT_TRUE(test::sameBytes(
        result.bytes,
        expected(b, before, b.commandsEnd() - 24, newCommand(kWrapper) + newCommand(kLogger), 2)));
  }
}

TEST_P(InsertionTest, SecondRunAddsOnlyTheWrapperAndThenFailsTheCheck) {
  const std::string once = insert(MachOBuilder(GetParam()).build()).bytes;
  EXPECT_EQ(test::checkBytes(once), "ok");
  const Inserted twice = insert(once);
  EXPECT_EQ(twice.outcome, "ok");
  EXPECT_EQ(twice.printed, " final  ldCmdOrdOfOrvDylib 4 \n");
  EXPECT_EQ(test::checkBytes(twice.bytes), "1183");
  EXPECT_EQ(twice.bytes.find(kLogger), twice.bytes.rfind(kLogger));
  EXPECT_EQ(insert(twice.bytes).outcome, "1183")
      << "the order is checked before anything is written";

  // A name that starts with the logger's path counts as the logger.
  MachOBuilder b(GetParam());
  b.addDylib(std::string(kLogger) + "Suffix");
  const std::string before = b.build();
  EXPECT_TRUE(test::sameBytes(insert(before).bytes,
                              expected(b, before, b.commandsEnd(), newCommand(kWrapper), 1)));
}

TEST_P(InsertionTest, RoomEndsAtTheLastSection) {
  MachOBuilder b(GetParam());
  b.build();
  const uint64_t end = b.commandsEnd();
  struct RoomCase {
    uint64_t limit;
    const char* outcome;
  };
  const RoomCase cases[] = {
      {end + 80 + 88 + 1, "ok"}, {end + 80 + 88, "1106"}, {end + 80, "1106"}, {0, "1106"}};
  for (const RoomCase& each : cases) {
    MachOBuilder tight(GetParam());
    tight.section("__TEXT", 0)["offset"] = each.limit;
    EXPECT_EQ(insert(tight.build()).outcome, each.outcome) << each.limit - end;
  }
  MachOBuilder unordered(GetParam());
  auto& sections = unordered.segment("__TEXT").sections;
  sections.push_back(sections[0]);
  sections[0]["offset"] = end;  // not looked at: only the last section is
  EXPECT_EQ(insert(unordered.build()).outcome, "ok");
  sections = unordered.segment("__TEXT").sections;
  unordered.segment("__TEXT").sections[1]["addr"] = 0;  // does not count, so the first is the last
  EXPECT_EQ(insert(unordered.build()).outcome, "1106");
}

struct StrictCase {
  const char* what;
  uint64_t needed;  // bytes behind the commands
  std::function<void(MachOBuilder&, uint64_t at)> placeFirstData;
};

TEST_P(InsertionTest, StrictRoomEndsAtTheFirstData) {
  const uint64_t added = 80 + 88, signature = 16;
  const auto firstSection = [](MachOBuilder& b, uint64_t at) {
    auto& sections = b.segment("__TEXT").sections;
    sections.insert(sections.begin(), sections[0]);
    sections[0]["offset"] = at;
  };
  const StrictCase cases[] = {
      {"a section that is not the last", added + signature, firstSection},
      {"with a signature", added,
       [&](auto& b, uint64_t at) {
         b.addLinkEditData(0x1d, 0x3a00, 0x100);
         firstSection(b, at);
       }},
      {"with a logger", 80 + signature,
       [&](auto& b, uint64_t at) {
         b.addDylib(kLogger);
         firstSection(b, at);
       }},
      {"an extension's longer names", 88 + 96 + signature, firstSection},
      {"a section of another segment", added + signature,
       [](auto& b, uint64_t at) { b.section("__DATA", 0)["offset"] = at; }},
      {"a segment without sections", added + signature,
       [](auto& b, uint64_t at) { b.addSegment("__MORE", 0x40000000, 0x1000, at, 8, 1); }},
  };
  for (const StrictCase& each : cases) {
    const int type = each.needed == 88 + 96 + signature ? 1 : 2;
    for (const int missing : {0, 1}) {
      MachOBuilder measured(GetParam());
      each.placeFirstData(measured, 0x2000);
      measured.build();
      MachOBuilder b(GetParam());
      each.placeFirstData(b, measured.commandsEnd() + each.needed - missing);
      const std::string before = b.build();
      const Inserted strict = insert(before, type, false, true), plain = insert(before, type);
      EXPECT_EQ(strict.outcome, missing == 0 ? "ok" : "1106") << each.what;
      EXPECT_EQ(plain.outcome, "ok") << each.what;
      EXPECT_TRUE(test::sameBytes(strict.bytes, missing == 0 ? plain.bytes : before)) << each.what;
    }
  }
  // Nothing is written for the first library when the second has no room by the built-in rule.
  MachOBuilder b(GetParam());
  b.build();
  b.section("__TEXT", 0)["offset"] = b.commandsEnd() + added;
  const std::string before = b.build();
  const Inserted refused = insert(before, 2, false, true);
  EXPECT_EQ(refused.outcome + refused.printed, "1106");
  EXPECT_TRUE(test::sameBytes(refused.bytes, before));
  EXPECT_FALSE(test::sameBytes(insert(before).bytes, before)) << "as before without the setting";

  // What takes up no room in the file does not count.
  MachOBuilder zero(GetParam());
  zero.section("__DATA", 2)["offset"] = 0x20;
  zero.addSegment("__EMPTY", 0x40000000, 0x1000, 0x20, 0, 3);
  EXPECT_EQ(insert(zero.build(), 2, false, true).outcome, "ok");
}

TEST_P(InsertionTest, EncryptedRangeMovesBehindTheCommands) {
  MachOBuilder b(GetParam());
  const uint32_t kind = b.arch.is64 ? 0x2c : 0x21;
  b.section("__TEXT", 0)["offset"] = 0x1800;
  // Fill up so that the new commands reach into the second page.
  b.build();
  b.addPlain(0x1b, static_cast<uint32_t>((0x1000 - b.commandsEnd()) & ~uint64_t{7}) - 16);
  std::string before = b.build();
  ASSERT_LT(b.commandsEnd(), 0x1000u);
  const std::string after = insert(before).bytes;
  const uint64_t command =
      after.find(stored(b.arch, kind, 4) + stored(b.arch, 20, 4) + stored(b.arch, 0x2000, 4));
  const uint64_t command64 =
      after.find(stored(b.arch, kind, 4) + stored(b.arch, 24, 4) + stored(b.arch, 0x2000, 4));
  const uint64_t found = b.arch.is64 ? command64 : command;
  ASSERT_NE(found, std::string::npos) << "offset is the next page";
  EXPECT_EQ(after.substr(found + 12, 4), stored(b.arch, 0, 4)) << "size shrinks by the distance";
}

TEST_P(InsertionTest, DamagedFilesAreRefusedUnchanged) {
  const std::vector<std::pair<const char*, std::function<void(MachOBuilder&)>>> cases = {
      {"1113", [](auto& b) { b.addPlain(0x1b, 0); }},
      {"1113", [](auto& b) { b.ncmds = 0xffffffff; }},
      {"1106", [](auto& b) { b.ncmds = 0; }},
      {"1106", [](auto& b) { b.sizeofcmds = 0x3fe0; }},
      {"1106", [](auto& b) { b.sizeofcmds = 0xfffffff0; }},
      {"1119", [](auto& b) { b.segment("__TEXT").fields["nsects"] = 0xffffffff; }},
      {"1185", [](auto& b) { b.addDylib("@rpath/IntuneMAM.framework/IntuneMAM"); }},
      {"1103", [](auto& b) { b.header["filetype"] = 1; }},
      {"1106", [](auto& b) { b.length = 0; }},
  };
  for (const auto& [outcome, change] : cases) {
    MachOBuilder b(GetParam());
    change(b);
    std::string before = b.build();
    if (b.length == 0) before.resize(b.commandsEnd() + 8);  // the limit lies beyond the file
    const Inserted result = insert(before);
    EXPECT_EQ(result.outcome, outcome);
    EXPECT_TRUE(test::sameBytes(result.bytes, before));
  }
}

TEST(Insertion, FilesThatCannotBeMapped) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(test::insertAt(folder.file("none")), "1100");
  EXPECT_EQ(test::checkAt(folder.file("none")), "1100");
  const std::string empty = folder.write("empty", "");
  EXPECT_EQ(test::insertAt(empty), "1102");
  EXPECT_EQ(test::checkAt(empty), "1102");
  EXPECT_EQ(test::checkAt(folder.path()), "1102");
  EXPECT_EQ(test::insertAt(folder.write("short", "\xce\xfa")), "1103");
}

}  // namespace
}  // namespace tovrek
