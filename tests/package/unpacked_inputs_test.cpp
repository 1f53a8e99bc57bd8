// Scratch folder, unpacked .ipa and .wex inputs, the app bundle: with the real zip and unzip.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "package/AppBundle.h"
#include "package/TemporaryDirectory.h"
#include "package/UnzippedCma.h"
#include "package/UnzippedIpa.h"
#include "tests/package/package_testing.h"

namespace tovrek::test {
namespace {

namespace fs = std::filesystem;

class UnpackedInputs : public ::testing::Test {
 protected:
  // Writes the files and zips them.
  std::string archive(const std::string& name, const std::vector<std::string>& files) {
    const std::string root = "in-" + name;
    for (const std::string& file : files) folder_.write(root + "/" + file, "contents of " + file);
    const std::string path = folder_.file(name);
    zipFolder(folder_.file(root), path);
    return path;
  }
  std::string wex(const std::string& name, const std::string& ipaName,
                  std::vector<std::string> packageFiles, const std::vector<std::string>& ipaFiles) {
    const std::string ipa = archive("inner-" + name + ".ipa", ipaFiles);
    fs::create_directories(folder_.file("in-" + name));
    fs::copy_file(ipa, folder_.file("in-" + name + "/" + ipaName));
    return archive(name, packageFiles);
  }

  TemporaryFolder folder_;
  ScopedEnvironment temporary_{"TMPDIR", folder_.path()};
  TemporaryDirectory scratch_;
  ErrorText error_;
};

TEST_F(UnpackedInputs, ScratchFolderIsPrivateAndGoesWithItsOwner) {
  std::string first, second;
  {
    TemporaryDirectory scratch;
    EXPECT_FALSE(scratch.createTempDir(false, true, &error_));
    EXPECT_FALSE(scratch.created());
    ASSERT_TRUE(scratch.CreateTempDirForCma(&error_));
    EXPECT_TRUE(scratch.packageDir().empty());
    first = scratch.tempDir();
    EXPECT_EQ(deletingLastPathComponent(first), folder_.file("com.orvane.wex"));
    EXPECT_EQ(fs::status(first).permissions(), fs::perms::owner_all);

    ASSERT_TRUE(scratch.Create(&error_));
    second = scratch.tempDir();
    EXPECT_NE(second, first);
    EXPECT_EQ(scratch.packageDir(), second + "/ORVANE_PACKAGE");
    EXPECT_TRUE(isDirectory(scratch.packageDir()));
    fs::create_directories(second + "/closed/inside");
    fs::permissions(second + "/closed", fs::perms::owner_read | fs::perms::owner_exec);
  }
  EXPECT_TRUE(fileExists(first));  // forgotten by the second call
  EXPECT_FALSE(itemExistsNoFollow(second));
  EXPECT_FALSE(error_.isSet());
}

TEST_F(UnpackedInputs, NobodyCanTakeAllNamesOfScratchFolders) {
  folder_.write("com.orvane.wex", "a file in the way");
  folder_.write(fmt::format("com.orvane.wex-{}", userId()), "and here");
  std::string path;
  {
    TemporaryDirectory scratch;
    ASSERT_TRUE(scratch.Create(&error_)) << error_.text();
    path = scratch.tempDir();
    EXPECT_EQ(deletingLastPathComponent(path), folder_.path());
    EXPECT_TRUE(isPrivateDirectory(path));
  }
  EXPECT_FALSE(itemExistsNoFollow(path));
}

TEST_F(UnpackedInputs, ScratchFoldersOfOthersAreLeftAlone) {
  const std::string usual = folder_.file("com.orvane.wex");
  const std::string own = fmt::format("{}-{}", usual, userId());
  // Open to others, and a link to somewhere else.
  fs::create_directory(usual);
  fs::permissions(usual, fs::perms::all);
  fs::create_directory(folder_.file("elsewhere"));
  for (int i = 0; i < 2; ++i) {
    TemporaryDirectory scratch;
    ASSERT_TRUE(scratch.Create(&error_)) << error_.text();
    EXPECT_EQ(deletingLastPathComponent(scratch.tempDir()), own);
    EXPECT_TRUE(isPrivateDirectory(own));
    fs::remove_all(usual);
    fs::create_directory_symlink(folder_.file("elsewhere"), usual);
  }
}

TEST_F(UnpackedInputs, WhatKilledRunsLeftIsRemoved) {
  TemporaryDirectory running;
  ASSERT_TRUE(running.Create(&error_)) << error_.text();
  const std::string family = deletingLastPathComponent(running.tempDir());
  const std::string killed = joinPath(family, uniqueString());
  fs::create_directories(killed + "/Payload");
  fs::permissions(killed, fs::perms::owner_all);
  fs::create_directory(family + "/mine");

  TemporaryDirectory next;
  ASSERT_TRUE(next.Create(&error_)) << error_.text();
  EXPECT_EQ(next.leftovers(), std::vector<std::string>{killed});
  EXPECT_FALSE(fileExists(killed));
  EXPECT_TRUE(fileExists(running.tempDir())) << "its run holds the lock";
  EXPECT_TRUE(fileExists(family + "/mine"));
}

TEST_F(UnpackedInputs, IpaGivesItsApp) {
  for (const char* name : {"App.IPA", "A [1]*?.ipa", "b\\ 'q'.ipa"}) {
    SCOPED_TRACE(name);
    const std::string ipa = archive(name, {"Payload/.app", "Payload/Z.app/Info.plist",
                                           "Payload/X.app/Info.plist", "Payload/A.APP/x"});
    // A file that the same name, read as a pattern, would match first.
    archive("A 1b.ipa", {"Payload/Wrong.app/x"});
    TemporaryDirectory scratch;
    const auto unpacked = UnzippedIpa::UnzippedIpaObjForInputFile(ipa, &scratch, &error_);
    ASSERT_NE(unpacked, nullptr) << error_.text();
    EXPECT_EQ(unpacked->ipaName(), name);
    EXPECT_EQ(unpacked->payloadDir(), scratch.tempDir() + "/Payload");
    EXPECT_EQ(unpacked->appPath(), scratch.tempDir() + "/Payload/X.app");
    EXPECT_TRUE(isDirectory(scratch.packageDir()));
    const auto bundle = UnzippedIpa::appBundleForUnzippedIpa(unpacked.get(), &error_);
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->path(), unpacked->appPath());
    EXPECT_FALSE(error_.isSet());
  }
}

TEST_F(UnpackedInputs, IpaFailures) {
  folder_.write("damaged.ipa", "PK no archive");
  const std::string noPayload = archive("none.ipa", {"Other/X.app/x"});
  const std::string noApp = archive("upper.ipa", {"Payload/X.APP/Info.plist"});
  fs::create_directories(folder_.file("elsewhere/Mine.app"));
  fs::create_directories(folder_.file("links/Payload"));
  fs::create_directory_symlink(folder_.file("elsewhere/Mine.app"),
                               folder_.file("links/Payload/X.app"));
  zipFolder(folder_.file("links"), folder_.file("links.ipa"));
  const struct {
    std::string input, before, after;  // error text around the scratch folder
  } cases[] = {
      {"a.zip", "Unknown input file.", ""},
      {folder_.file("missing.ipa"), "Unzip command failed. ", ""},
      {folder_.file("damaged.ipa"), "Unzip command failed. ", ""},
      {noPayload, "Payload directory does not exist at ", ""},
      {noApp, "Payload directory (", "/Payload) can not be found."},
      {folder_.file("links.ipa"), "Payload directory (", "/Payload) can not be found."},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.input);
    TemporaryDirectory scratch;
    EXPECT_EQ(UnzippedIpa::UnzippedIpaObjForInputFile(test.input, &scratch, &error_), nullptr);
    const bool namesFolder = test.before.find("Payload") == 0;
    EXPECT_EQ(error_.text(), test.before + (namesFolder ? scratch.tempDir() : "") + test.after);
  }
  EXPECT_EQ(UnzippedIpa::UnzippedIpaObjForInputFile("a.ipa", nullptr, &error_), nullptr);
  EXPECT_FALSE(error_.isSet());
}

TEST_F(UnpackedInputs, AppIsTakenWhereItStands) {
  const auto app = UnzippedIpa::UnzippedIpaObjForInputFile("/x/Y.APP/", &scratch_, &error_);
  ASSERT_NE(app, nullptr);
  EXPECT_EQ(app->appPath(), "/x/Y.APP/");
  EXPECT_FALSE(scratch_.created());
  EXPECT_FALSE(UnzippedIpa::appBundleForUnzippedIpa(app.get(), &error_));
  EXPECT_EQ(error_.text(), "Failed to get the input ipa file NSBundle object.");
}

TEST_F(UnpackedInputs, ExactCommandLineAndOutput) {
  const std::string log = folder_.file("argv");
  const std::string unzip =
      folder_.write("host/usr/bin/unzip",
                    "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + log + "'\necho some output\nexit 9\n");
  fs::permissions(unzip, fs::perms::owner_all);
  const ScopedEnvironment root("TOVREK_HOST_ROOT", folder_.file("host"));
  EXPECT_EQ(UnzippedIpa::UnzippedIpaObjForInputFile("-a.ipa", &scratch_, &error_), nullptr);
  EXPECT_EQ(error_.text(), "Unzip command failed. some output\n");
  EXPECT_EQ(contentsOf(log), "-q\n-d\n" + scratch_.tempDir() + "\n./-a.ipa\n");
}

TEST_F(UnpackedInputs, WexGivesIpaAppAndManifest) {
  for (const bool wrapped : {true, false}) {
    SCOPED_TRACE(wrapped);
    const std::string name = wrapped ? "w.WEX" : "s.wex";
    std::vector<std::string> inside = {"Payload/X.app/Info.plist"};
    if (wrapped) inside.push_back("Payload/X.app/OrvaneDylib.bundle/OrvaneDylib.dylib");
    const std::string path =
        wex(name, "b.ipa", {"policy_metadata.xml", "manifest.xml", "A.XML"}, inside);
    TemporaryDirectory scratch;
    const auto package = UnzippedCma::UnzippedIpaObjForInputFile(path, &scratch, &error_);
    ASSERT_NE(package, nullptr) << error_.text();
    EXPECT_EQ(package->cmaName(), name);
    EXPECT_EQ(package->ipaName(), "b.ipa");
    EXPECT_EQ(package->ipaPath(), scratch.tempDir() + "/b.ipa");
    EXPECT_EQ(package->appPath(), scratch.tempDir() + "/Payload/X.app");
    EXPECT_EQ(package->isSDKApp(), !wrapped);

    TemporaryDirectory other;
    ASSERT_TRUE(other.CreateTempDirForCma(&error_));
    const auto alone = UnzippedCma::initWithCma(path, other);
    ASSERT_TRUE(alone->Unzip(&error_)) << error_.text();
    EXPECT_EQ(alone->manifestxmlPath(), other.tempDir() + "/manifest.xml");
  }
}

TEST_F(UnpackedInputs, WexFailures) {
  const std::string noIpa = archive("none.wex", {"a.IPA", "manifest.txt"});
  EXPECT_EQ(UnzippedCma::UnzippedIpaObjForInputFile(noIpa, &scratch_, &error_), nullptr);
  EXPECT_EQ(error_.text(), "Ipa is not found in directory (" + scratch_.tempDir() + ") .");

  TemporaryDirectory other;
  ASSERT_TRUE(other.CreateTempDirForCma(&error_));
  EXPECT_FALSE(UnzippedCma::initWithCma(noIpa, other)->Unzip(&error_));
  EXPECT_EQ(error_.text(), "Manifest xml cannot be foung in directory (" + other.tempDir() + ")");

  EXPECT_EQ(UnzippedCma::UnzippedIpaObjForInputFile("a.cma", &scratch_, &error_), nullptr);
  EXPECT_EQ(error_.text(), "Unknown input file.");
}

TEST_F(UnpackedInputs, LinksOfAPackageCannotLeadTheInnerArchiveOutside) {
  fs::create_directories(folder_.file("outside"));
  fs::create_directories(folder_.file("in-evil.wex/Payload/X.app"));
  fs::create_directory_symlink(folder_.file("outside"),
                               folder_.file("in-evil.wex/Payload/X.app/Frameworks"));
  fs::create_symlink(folder_.file("secret"), folder_.file("in-evil.wex/a.xml"));
  const std::string path =
      wex("evil.wex", "b.ipa", {"manifest.xml"}, {"Payload/X.app/Frameworks/planted"});
  const auto package = UnzippedCma::UnzippedIpaObjForInputFile(path, &scratch_, &error_);
  EXPECT_EQ(package, nullptr);
  EXPECT_THAT(error_.text(),
              ::testing::StartsWith("The input holds a link that is not accepted: "));
  EXPECT_TRUE(fs::is_empty(folder_.file("outside")));
}

TEST_F(UnpackedInputs, BundleAnswersFromTheFilesAndStaysInside) {
  EXPECT_FALSE(AppBundle::open(folder_.file("none.app")));
  folder_.write("outside.plist", "");
  const std::string path = folder_.file("My App.app");
  folder_.write("My App.app/My App", "code");
  folder_.write("My App.app/Named", "code");
  const auto bundle = AppBundle::open(path);
  ASSERT_TRUE(bundle);
  EXPECT_TRUE(bundle->infoPlist().empty());
  EXPECT_EQ(bundle->executablePath(), path + "/My App");
  PlistDictionary info;
  const struct {
    const char* executable;
    std::optional<std::string> expected;
  } cases[] = {{"Named", path + "/Named"},
               {"", path + "/My App"},
               {"Missing", std::nullopt},
               {"../outside.plist", std::nullopt},
               {".", std::nullopt}};
  for (const auto& test : cases) {
    info.set("CFBundleExecutable", test.executable);
    writeInfoPlist(path, info);
    EXPECT_EQ(bundle->executablePath(), test.expected) << test.executable;
  }
  EXPECT_EQ(bundle->resourcePath("Info", "plist"), path + "/Info.plist");
  EXPECT_FALSE(bundle->resourcePath("../outside", "plist"));
  fs::create_symlink(folder_.file("outside.plist"), path + "/link.plist");
  EXPECT_FALSE(bundle->resourcePath("link", "plist"));
}

}  // namespace
}  // namespace tovrek::test
