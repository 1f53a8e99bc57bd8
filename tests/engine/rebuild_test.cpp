// Whole rebuilds through the front, with the real lipo companion or a scripted one.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "engine/MachORebuildLib.h"
#include "engine/MachORebuilder.h"
#include "engine/engine_log.h"
#include "engine/lipo_runner.h"
#include "host/files.h"
#include "macho/FatFile.h"
#include "tests/engine/EngineRun.h"
#include "tests/support/ScriptedHostRoot.h"

namespace tovrek {
namespace {

using test::buildFat;
using test::kArm64;
using test::kArmv7;
using test::kArmv7s;
using test::MachOBuilder;
using test::ScopedEnvironment;
using test::soundImage;
using test::TemporaryFolder;

struct Rebuilt {
  bool done = false;
  ErrorText error;
  std::string printed;
};

Rebuilt rebuild(int binaryType, const std::string& path, bool libraryType = false,
                Settings settings = {}, const std::optional<std::string>& log = std::nullopt) {
  WrapperLogger logger("Test", log);
  logger.setLogFileWriteLevel(3);
  Rebuilt result;
  result.error.set("left over");
  testing::internal::CaptureStderr();
  result.done = MachORebuilder(settings).initWithBinaryType(binaryType, libraryType, path, logger,
                                                            &result.error);
  result.printed = testing::internal::GetCapturedStderr();
  return result;
}

class RebuildTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  ScopedEnvironment hostRoot_{"TOVREK_HOST_ROOT", std::string(TOVREK_BUILT_FOLDER) + "/host"};

  std::string program(const std::string& bytes) {
    const std::string path = folder_.write("App", bytes);
    ::chmod(path.c_str(), 0755);
    return path;
  }
};

TEST_F(RebuildTest, KeepsDeviceSlicesAndLeavesNoOthers) {
  const std::string path = program(buildFat({{test::kI386, soundImage(test::kI386)},
                                             {kArmv7, soundImage(kArmv7)},
                                             {kArmv7s, soundImage(kArmv7s)},
                                             {kArm64, soundImage(kArm64)}}));
  const Rebuilt result = rebuild(2, path);
  EXPECT_TRUE(result.done);
  EXPECT_FALSE(result.error.isSet()) << result.error.text();
  const std::string bytes = test::contentsOf(path);
  macho::FatFile fat;
  ASSERT_TRUE(macho::FatFile::read(std::as_bytes(std::span(bytes)), &fat, nullptr));
  ASSERT_EQ(fat.slices.size(), 3u);
  for (const macho::FatSlice& slice : fat.slices) {
    const std::string part = bytes.substr(slice.offset, slice.size);
    EXPECT_NE(part.find("@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib"), part.npos);
    EXPECT_NE(part.find("OrvaneLogger.framework/OrvaneLogger"), part.npos);
  }
  EXPECT_EQ(listDirectory(folder_.path()), std::vector<std::string>{"App"});
  EXPECT_EQ(fileMode(path), 0755u);

  const Rebuilt again = rebuild(2, path);
  EXPECT_FALSE(again.done);
  EXPECT_EQ(again.error.text(),
            "ERROR:   application contains  multiple load commands for Nolvara wrapper dynamic "
            "library - only one load command should be present.");
  EXPECT_NE(again.printed.find("addOrvaneDylib: check dylib failed: " + path + " 1183\n"),
            std::string::npos);
}

TEST_F(RebuildTest, ThinProgramComesBackUniversal) {
  const std::string path = program(soundImage(kArm64));
  folder_.write("App-arm64", "left over from a broken run");
  EXPECT_TRUE(rebuild(1, path).done);
  const std::string bytes = test::contentsOf(path);
  EXPECT_EQ(bytes.substr(0, 8), std::string("\xca\xfe\xba\xbe\0\0\0\1", 8));
  EXPECT_NE(bytes.find("@executable_path/../../OrvaneDylib.bundle"), std::string::npos);
  EXPECT_EQ(listDirectory(folder_.path()), std::vector<std::string>{"App"});
}

TEST_F(RebuildTest, NoDeviceSliceLosesTheFile) {
  const std::string path = program(soundImage(test::kX86_64));
  const Rebuilt result = rebuild(2, path);
  EXPECT_EQ(result.error.text(), "ERROR: Failed to open application binary image.");
  EXPECT_NE(result.printed.find("addOrvaneDylib: check dylib failed: " + path + " 1100\n"),
            std::string::npos);
  EXPECT_FALSE(fileExists(path));
}

TEST_F(RebuildTest, SilenceOfLipoIsNoAnswer) {
  const struct {
    const char* script;
    int status;
  } cases[] = {
      {"exit 127", 127},
      {"kill -9 $$", 9},
      {"case \"$2$3\" in -verify_archarmv7) exit 127;; esac; exit 0", 127},
      {"case \"$2$3\" in -verify_archarmv7) echo cannot read >&2; exit 1;; esac; exit 0", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.script);
    test::ScriptedHostRoot host;
    host.addTool("lipo", c.script);
    const std::string path = program(soundImage(kArm64));
    const Rebuilt result = rebuild(2, path);
    EXPECT_FALSE(result.done);
    EXPECT_EQ(result.error.text(),
              "Failed to execute lipo with exit code: " + std::to_string(c.status));
    EXPECT_TRUE(fileExists(path));
  }
}

TEST_F(RebuildTest, FailuresReachTheSlotAsTexts) {
  MachOBuilder b(kArm64);
  b.symbols[1].strx = 1;
  Rebuilt result = rebuild(2, program(b.build()));
  EXPECT_FALSE(result.done);
  EXPECT_EQ(result.error.text(), "duplicate external symbol: _main");

  MachOBuilder linked(kArm64);
  linked.addDylib("@rpath/IntuneMAM.framework/IntuneMAM");
  result = rebuild(2, program(linked.build()));
  EXPECT_TRUE(result.error.text().ends_with("full Wex technology.\n."));
  EXPECT_NE(result.printed.find("addOrvaneDylib: add binaryType 2 dylib failed: " +
                                folder_.file("App") + " 1185\n"),
            std::string::npos);
  EXPECT_TRUE(rebuild(2, program(linked.build()), true).done);

  linked.addDylib("@rpath/Wex.framework/Wex");
  result = rebuild(0, program(linked.build()));
  EXPECT_NE(result.printed.find("checkOrderDynamicLibrariesInSDKImage: check dylib failed: "),
            std::string::npos);
  EXPECT_TRUE(
      result.error.text().starts_with("ERROR:   Nolvara and Intune SDK frameworks in wrong"));

  result = rebuild(7, folder_.file("none"));
  EXPECT_FALSE(result.done);
  EXPECT_FALSE(result.error.isSet());
  WrapperLogger logger("Test", std::nullopt);
  EXPECT_TRUE(
      MachORebuilder().initForLibraryType(false, program(soundImage(kArm64)), logger, nullptr));
}

// One slice without room refuses the whole file, though the other could be changed.
TEST_F(RebuildTest, StrictRoomIsAskedOfAllSlicesFirst) {
  MachOBuilder measured(kArm64), tight(kArm64);
  measured.build();
  auto& sections = tight.segment("__TEXT").sections;
  sections.insert(sections.begin(), sections[0]);
  sections[0]["offset"] = measured.commandsEnd() + 80 + 100;
  const std::string before = buildFat({{kArmv7, soundImage(kArmv7)}, {kArm64, tight.build()}});
  const std::string path = program(before);
  Settings strict;
  strict.strictHeaderRoom = true;
  const TemporaryFolder logs;
  const std::string log = logs.write("log", "");
  const Rebuilt refused = rebuild(2, path, false, strict, log);
  EXPECT_EQ(refused.error.text(),
            "ERROR: No room in header of application binary image to insert dylib reference.");
  EXPECT_TRUE(test::sameBytes(test::contentsOf(path), before));
  EXPECT_EQ(listDirectory(folder_.path()), std::vector<std::string>{"App"});
  EXPECT_NE(test::contentsOf(log).find("strictHeaderRoom refuses " + path + "-arm64: "),
            std::string::npos);

  Settings off;
  off.namesStrictHeaderRoom = true;
  EXPECT_TRUE(rebuild(2, path, false, off, log).done);
  EXPECT_NE(test::contentsOf(log).find("overwrites the first data of " + path + "-arm64, at "),
            std::string::npos);
}

TEST_F(RebuildTest, TracesGoToTheCallersLog) {
  const std::string log = folder_.write("run.log", "");
  WrapperLogger logger("Test", log);
  logger.setLogFileWriteLevel(3);
  EXPECT_TRUE(
      MachORebuilder().initForLibraryType(false, program(soundImage(kArm64)), logger, nullptr));
  const std::string text = test::contentsOf(log);
  EXPECT_NE(text.find("[MachORebuildLib] checkLoadCommands: i 0 cmd 0x"), std::string::npos);
  EXPECT_NE(text.find(" code 0x19 cmdsize 72 Mask 0x7\n"), std::string::npos);
  MachORebuildLib_Log(logger, "{}", std::string(5000, 'x'));
  EXPECT_NE(test::contentsOf(log).find("] " + std::string(4095, 'x') + "\n"), std::string::npos);

  MachORebuildLib engine;
  engine.setLogFilename(log);
  engine.load();
  EXPECT_FALSE(engine.logger().getLogFilename()) << "made anew";
}

// A lipo that writes down its arguments; `script` decides the rest.
class ScriptedLipoTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  ScopedEnvironment hostRoot_{"TOVREK_HOST_ROOT", folder_.path()};
  std::string path_ = folder_.write("App", "x");
  WrapperLogger log_{"Test", folder_.file("log")};

  void script(const std::string& text) {
    const std::string program = folder_.write(
        "usr/bin/lipo", "#!/bin/sh\necho \"$@\" >> " + folder_.file("calls") + "\n" + text);
    ::chmod(program.c_str(), 0755);
    folder_.write("calls", "");
  }
  // The calls since then, with the executable's path as P.
  std::string calls() const {
    std::string text = test::contentsOf(folder_.file("calls"));
    for (size_t at; (at = text.find(path_)) != std::string::npos;)
      text.replace(at, path_.size(), "P");
    return text;
  }
};

TEST_F(ScriptedLipoTest, CommandLinesOfSplitAndJoin) {
  script("test \"$3\" != armv7s");
  ArchPresence present{};
  ErrorText reason;
  EXPECT_TRUE(ExtractArchsFromFatBinary(path_, true, &present, log_, &reason));
  EXPECT_EQ(present, (ArchPresence{true, false, true}));
  EXPECT_EQ(calls(),
            "P -verify_arch armv7\nP -verify_arch armv7s\nP -verify_arch arm64\n"
            "P -thin armv7 -output P-armv7\nP -thin arm64 -output P-arm64\n");
  script("exit 0");
  EXPECT_TRUE(CreateFatBinaryFromArchs(path_, present, log_, nullptr));
  EXPECT_EQ(calls(), "P-armv7 P-arm64 -create -output P\n");
  EXPECT_FALSE(fileExists(path_)) << "the program is removed first";
}

TEST_F(ScriptedLipoTest, Leniencies) {
  ArchPresence present{};
  ErrorText reason;
  log_.setLogDisplayLevel(0);
  log_.setLogFileWriteLevel(1);
  script("test \"$2\" = -verify_arch || { echo the disk is full >&2; false; }");
  EXPECT_FALSE(ExtractArchsFromFatBinary(path_, true, &present, log_, &reason));
  EXPECT_EQ(calls().find("-thin armv7s"), std::string::npos) << "the first failure ends the split";
  EXPECT_NE(test::contentsOf(folder_.file("log")).find("[Test] the disk is full\n"),
            std::string::npos);
  EXPECT_EQ(reason.text(), "the disk is full");

  present = {true, false, false};
  const std::string slice = folder_.write("App-armv7", "slice");
  script("echo unknown architecture specification flag >&2; exit 1");
  EXPECT_TRUE(CreateFatBinaryFromArchs(path_, present, log_, nullptr));
  EXPECT_TRUE(fileExists(slice)) << "stays then";
  script("exit 1");
  EXPECT_FALSE(CreateFatBinaryFromArchs(path_, present, log_, nullptr));
  EXPECT_FALSE(fileExists(slice));

  script("echo 'Non-fat file: x is architecture: y' >&2; exit 1");
  EXPECT_FALSE(IsFatBinary(path_)) << "both outputs are read, the status is not";
  script("echo error");
  EXPECT_TRUE(IsFatBinary(path_));
}

}  // namespace
}  // namespace tovrek
