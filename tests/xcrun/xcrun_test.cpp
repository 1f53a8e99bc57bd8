// xcrun: finding tools, and packages made of apps.
#include <sys/stat.h>
#include <unistd.h>

#include "host/files.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using Words = std::vector<std::string>;

using Xcrun = CompanionTest;

TEST_F(Xcrun, FindsAndRunsTools) {
  expectRun({"xcrun", "--find", "otool"}, 0, companion("otool") + "\n");
  EXPECT_THAT(run({"xcrun", "-f", "unzip"}).output, EndsWith("/unzip\n"));
  expectRun({"xcrun", "-sdk", "iphoneos", "no-such-tool"}, 72, "",
            "xcrun: error: unable to find utility \"no-such-tool\", not a developer tool or in "
            "PATH\n");
  script("sometool", "echo \"$# $1|$2\"; exit 7\n");
  expectRun({"xcrun", "-sdk", "iphoneos", "--run", "sometool", "-sdk", "a b"}, 7, "2 -sdk|a b\n");
  for (const char* question : {"--show-sdk-path", "-show-sdk-version"}) {
    expectRun({"xcrun", "--sdk", "iphoneos", question}, 1, "",
              "xcrun: error: SDK \"iphoneos\" cannot be located\n");
  }
  EXPECT_EQ(run({"xcrun"}).status, 64);
  EXPECT_EQ(run({"xcrun", "--nonsense", "otool"}).status, 64);
}

TEST_F(Xcrun, PackageApplication) {
  // The stand-in notes its arguments and leaves a trace where a signer would.
  script("codesign", "printf '%s\\n' \"$@\" > '" + folder_.file("codesign.log") +
                         "'\nfor app; do :; done\ntest -f \"$app/embedded.mobileprovision\" && "
                         "echo signed > \"$app/_CodeSignature\"\n");
  folder_.write("My App.app/Info.plist", "<plist/>");
  const std::string program = folder_.write("My App.app/My App", "binary");
  ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
  ASSERT_EQ(::symlink("My App", folder_.file("My App.app/link").c_str()), 0);
  folder_.write("My App.app/embedded.mobileprovision", "old");
  const std::string profile = folder_.write("new.mobileprovision", "new");
  const std::string ipa = folder_.write("out.ipa", "an older package");
  const std::string app = folder_.file("My App.app");

  const Outcome outcome =
      run({"xcrun", "-sdk", "iphoneos", "PackageApplication", app, "-o", ipa, "--sign",
           "iPhone Distribution: Acme", "--embed", profile, "--verbose"});
  ASSERT_EQ(outcome.status, 0) << outcome.errorOutput;
  EXPECT_THAT(outcome.output, HasSubstr("Results at '" + ipa + "'"));
  EXPECT_THAT(contentsOf(folder_.file("codesign.log")),
              ContainsRegex("^--force\n--preserve-metadata=identifier,entitlements\n--sign\niPhone "
                            "Distribution: Acme\n/.*/Payload/My App.app\n$"));

  Outcome unzip;
  ASSERT_TRUE(
      runProcess(shellCommand("cd '" + folder_.path() + "' && unzip -q out.ipa -d got"), &unzip));
  ASSERT_EQ(unzip.status, 0);
  const std::string got = folder_.file("got/Payload/My App.app/");
  EXPECT_EQ(contentsOf(got + "embedded.mobileprovision"), "new");
  EXPECT_EQ(contentsOf(got + "_CodeSignature"), "signed\n");
  EXPECT_TRUE(isSymbolicLink(got + "link"));
  struct stat info {};
  ASSERT_EQ(::stat((got + "My App").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0755u);
  EXPECT_EQ(contentsOf(app + "/embedded.mobileprovision"), "old");  // the input is left alone
  EXPECT_FALSE(fileExists(app + "/_CodeSignature"));
}

TEST_F(Xcrun, PackageApplicationFailures) {
  script("codesign", "echo 'X: no identity found'; exit 1\n");
  const ScopedEnvironment temporary("TMPDIR", folder_.path() + "/tmp");
  ASSERT_TRUE(createDirectories(folder_.file("tmp")));
  folder_.write("A.app/Info.plist", "<plist/>");
  folder_.write("Empty.app/readme", "");
  const std::string ipa = folder_.write("out.ipa", "older");
  ASSERT_TRUE(createDirectories(folder_.file("folder.ipa")));
  const struct {
    Words words;
    std::string text;
  } cases[] = {
      {{"A.app", "-o", "out.ipa", "--sign", "X"}, " failed with status 1: X: no identity found\n"},
      {{"A.app", "-o", "out.ipa", "--embed", "missing"},
       "error: cannot embed profile 'missing': No such file or directory\n"},
      {{"A.app", "-o", "folder.ipa"}, "error: cannot write 'folder.ipa': "},
      {{"Empty.app", "-o", "out.ipa"},
       "error: the application 'Empty.app' does not exist or is no app bundle\n"},
      {{"-o", "out.ipa"}, "error: no application given\n"},
      {{"A.app", "B.app"}, "error: more than one application given: 'B.app'\n"},
      {{"A.app", "-o"}, "error: unknown option, or one without its value: '-o'\n"},
      {{"A.app", "--nonsense", "x"}, "error: unknown option '--nonsense'\n"},
  };
  for (const auto& c : cases) {
    Words words = {"xcrun", "-sdk", "iphoneos", "PackageApplication"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, 1) << c.text;
    EXPECT_THAT(outcome.errorOutput, HasSubstr(c.text));
  }
  EXPECT_EQ(contentsOf(ipa), "older");
  // Nothing of the runs is left behind.
  Outcome left;
  ASSERT_TRUE(runProcess(
      shellCommand("find '" + folder_.file("tmp") + "' -name 'PackageApplication*'"), &left));
  EXPECT_EQ(left.output, "");
}

}  // namespace
}  // namespace tovrek::test
