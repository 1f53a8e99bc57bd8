// The settings file: what its lines may say, and which file is read.
#include "settings/settings_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>

#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {
namespace {

using Field = bool Settings::*;
constexpr Field kFields[] = {&Settings::modernImages,         &Settings::strictHeaderRoom,
                             &Settings::resignNested,         &Settings::resignWrapped,
                             &Settings::keepPlistLimits,      &Settings::refreshOnResign,
                             &Settings::keepExtensionsOnSign, &Settings::renameExtensions};

TEST(SettingsFile, LinesSwitchWhatTheyName) {
  constexpr std::pair<const char*, Field> kNames[] = {
      {"modernImages", kFields[0]},         {"strictHeaderRoom", kFields[1]},
      {"resignNested", kFields[2]},         {"resignWrapped", kFields[3]},
      {"keepPlistLimits", kFields[4]},      {"refreshOnResign", kFields[5]},
      {"keepExtensionsOnSign", kFields[6]}, {"renameExtensions", kFields[7]},
  };
  for (const auto& [name, field] : kNames) {
    const std::string text = std::string("# a = b\n\n \t\r\n") + name + "=yes # why\r\n";
    Settings settings;
    ErrorText error;
    EXPECT_TRUE(parseSettings(text, "conf", &settings, &error)) << error.text();
    for (const Field other : kFields) EXPECT_EQ(settings.*other, other == field) << name;
  }
  Settings settings;
  EXPECT_TRUE(
      parseSettings("modernImages = no\n\tstrictHeaderRoom\t=\tyes", "c", &settings, nullptr));
  EXPECT_FALSE(settings.modernImages);
  EXPECT_TRUE(settings.strictHeaderRoom);
}

TEST(SettingsFile, ValuesThatAreNoSwitches) {
  const auto read = [](std::string_view text) {
    Settings settings;
    ErrorText error;
    EXPECT_TRUE(parseSettings(text, "conf", &settings, &error)) << error.text();
    return settings;
  };
  EXPECT_EQ(read("").verifyResult, ResultCheck::kNone);
  EXPECT_EQ(read("verifyResult = no").verifyResult, ResultCheck::kNone);
  EXPECT_EQ(read("verifyResult = yes").verifyResult, ResultCheck::kWarns);
  EXPECT_EQ(read("verifyResult=strict # always").verifyResult, ResultCheck::kStrict);
  EXPECT_EQ(read("profilesFolder = no").profilesFolder, "");
  EXPECT_EQ(read("profilesFolder = /a b//c = d/\r\n").profilesFolder, "/a b/c = d");
  EXPECT_EQ(read("profilesFolder = ~/p").profilesFolder, std::string(getenv("HOME")) + "/p");
}

TEST(SettingsFile, RefusalsNameFileAndLine) {
  constexpr std::pair<std::string_view, const char*> kCases[] = {
      {"modernImages",
       "line 1: \"modernImages\" is not of the form \"name = yes\" or \"name = no\""},
      {"\n\nmodernImages = Yes\n", "line 3: \"modernImages\" must be yes or no, not \"Yes\""},
      {"modernImages =\n", "line 1: \"modernImages\" must be yes or no, not \"\""},
      {"modernImages = yes yes", "line 1: \"modernImages\" must be yes or no, not \"yes yes\""},
      {"modernImages = yes\nmodernimages = no", "line 2: there is no setting \"modernimages\""},
      {"verifyResult = Strict",
       "line 1: \"verifyResult\" must be yes, no or strict, not \"Strict\""},
      {"profilesFolder = profiles",
       "line 1: \"profilesFolder\" must be no or an absolute path, not \"profiles\""},
      {"profilesFolder =", "line 1: \"profilesFolder\" must be no or an absolute path, not \"\""},
      {"profilesFolder = /a\nprofilesFolder = /a", "line 2: \"profilesFolder\" is given twice"},
      {"= yes", "line 1: there is no setting \"\""},
      {"resignNested=no\nresignNested=no", "line 2: \"resignNested\" is given twice"},
      {"plistDepth = 600\nplistDepth = 600", "line 2: \"plistDepth\" is given twice"},
      {"plistDepth = 511",
       "line 1: \"plistDepth\" must be a whole number from 512 to 2048, not \"511\""},
      {"plistDepth = 2049",
       "line 1: \"plistDepth\" must be a whole number from 512 to 2048, not \"2049\""},
      {"archiveGrowth = 1e3",
       "line 1: \"archiveGrowth\" must be a whole number from 100 to 10000, not \"1e3\""},
      {"xmlAttributes = 18446744073709551616",
       "line 1: \"xmlAttributes\" must be a whole number from 1000 to 20000, not "
       "\"18446744073709551616\""},
      {"keyRounds = -1",
       "line 1: \"keyRounds\" must be a whole number from 10000000 to 1000000000, not \"-1\""},
  };
  for (const auto& [text, reason] : kCases) {
    Settings settings;
    ErrorText error;
    EXPECT_FALSE(parseSettings(text, "/x/tovrek.conf", &settings, &error)) << text;
    EXPECT_EQ(error.text(), std::string("Settings file /x/tovrek.conf, ") + reason);
  }
}

TEST(SettingsFile, LimitsGoOnToChildren) {
  const ScopedEnvironment environment(
      "TOVREK_LIMITS", "plistDepth=1000 xmlTags=5 nonsense  archiveFolders=501 xmlBytes=");
  Settings settings;
  ASSERT_TRUE(parseSettings("plistDepth = 2048\nkeyRounds=20000000#", "c", &settings, nullptr));
  putInForce(settings.limits);
  EXPECT_STREQ(getenv("TOVREK_LIMITS"), "archiveFolders=501 plistDepth=2048 keyRounds=20000000")
      << "the file stands above the environment, and what is wrong there counts for nothing";
  EXPECT_EQ(limitsInForce().plistDepth, 2048u);
  putInForce(Limits{});
  EXPECT_EQ(getenv("TOVREK_LIMITS"), nullptr);
}

TEST(SettingsFile, TheEnvironmentNamesAnother) {
  const TemporaryFolder folder;
  const std::string path = folder.write("my.conf", "modernImages = yes");
  setenv("TOVREK_CONF", path.c_str(), 1);
  Settings settings;
  ErrorText error;
  EXPECT_TRUE(readSettings(&settings, &error));
  EXPECT_TRUE(settings.modernImages);
  const std::string missing = folder.file("none.conf");
  setenv("TOVREK_CONF", missing.c_str(), 1);
  EXPECT_FALSE(readSettings(&settings, &error));
  EXPECT_EQ(error.text(), "Settings file " + missing + ": No such file or directory");
  EXPECT_FALSE(settings.modernImages);
  unsetenv("TOVREK_CONF");
  error.clear();
  EXPECT_TRUE(readSettings(&settings, &error)) << "none beside the test program";

  // The folder of profiles has a variable of its own, with a file and without.
  setenv("TOVREK_PROFILES", "/other//profiles/", 1);
  EXPECT_TRUE(readSettings(&settings, &error));
  EXPECT_EQ(settings.profilesFolder, "/other/profiles");
  setenv("TOVREK_CONF", folder.write("p.conf", "profilesFolder = /first").c_str(), 1);
  EXPECT_TRUE(readSettings(&settings, &error));
  EXPECT_EQ(settings.profilesFolder, "/other/profiles");
  setenv("TOVREK_PROFILES", "", 1);
  EXPECT_TRUE(readSettings(&settings, &error));
  EXPECT_EQ(settings.profilesFolder, "/first");
  unsetenv("TOVREK_PROFILES");
  unsetenv("TOVREK_CONF");
}

}  // namespace
}  // namespace tovrek::test
