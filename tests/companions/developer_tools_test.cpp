// The companions that put a host program in front of a Mac's command line.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "host/files.h"
#include "programs/openssl/openssl_arguments.h"
#include "programs/openssl/subject_answer.h"
#include "programs/xcrun/package_application.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::test {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Words = std::vector<std::string>;

class DeveloperTools : public CompanionTest {
 protected:
  // A program in a host root of the test's own, which then is the current one.
  void script(const std::string& name, const std::string& text) {
    const std::string path = folder_.write("root/usr/bin/" + name, "#!/bin/sh\n" + text);
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    ASSERT_EQ(::setenv("TOVREK_HOST_ROOT", folder_.file("root").c_str(), 1), 0);
  }
};

TEST_F(DeveloperTools, OpensslPrintsSubjectsWithSlashes) {
  IdentityRequest request;
  request.subject = "/UID=U1/CN=iPhone Distribution: Acme/OU=TEAM123456/O=Acme, Inc.";
  const std::string file =
      folder_.write("c.der", derOf(makeIdentity(folder_, "id", request).certificate));
  expectRun({"openssl", "x509", "-inform", "der", "-in", file, "-subject", "-noout"}, 0,
            "subject=/UID=U1/CN=iPhone Distribution: Acme/OU=TEAM123456/O=Acme, Inc.\n");
  EXPECT_THAT(run({"openssl", "version"}).output, StartsWith("OpenSSL "));
  const Outcome failed = run({"openssl", "x509", "-in", "/nowhere", "-subject"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(run({"openssl", "dgst", "-md5", "-r"}, "abc").output,
            "900150983cd24fb0d6963f7d28e17f72 *stdin\n");
}

// Each answer is the host program's own, and what that refuses is left to it.
TEST_F(DeveloperTools, OpensslAnswersForSubjectsItself) {
  IdentityRequest request;
  request.subject = "/CN=Zo\xc3\xab \\/ A+B=C/OU=TEAM123456/OU=Second/emailAddress=a@example.com";
  const std::string pem = makeIdentity(folder_, "id", request).certificate;
  const std::string der = derOf(pem);
  std::string text;
  ASSERT_TRUE(readFile(pem, &text));
  const struct {
    std::string content;
    Words form;
    bool answered;
  } cases[] = {
      {der, {"-inform", "der"}, true},
      {der, {}, true},
      {text, {"-inform", "PEM"}, true},
      {text, {}, true},
      {text, {"-inform", "der"}, false},
      {der, {"-inform", "pem"}, false},
      {der + "x", {}, false},
      {der.substr(0, der.size() - 1), {}, false},
      {"", {}, false},
      {der, {"-serial"}, false},
      {der, {"-nameopt", "RFC2253"}, false},
      {der, {"-in"}, false},
  };
  for (const auto& c : cases) {
    const std::string file = folder_.write("subject", c.content);
    Words words = {"x509", "-in", file, "-subject", "-noout"};
    words.insert(words.end(), c.form.begin(), c.form.end());
    const auto answer = openssl::subjectAnswer(words);
    ASSERT_EQ(answer.has_value(), c.answered) << testing::PrintToString(c.form);
    if (!answer) continue;
    words.insert(words.begin(), "openssl");
    words.insert(words.end(), {"-nameopt", "compat"});  // so that the host's program answers
    EXPECT_EQ(*answer, run(words).output);
  }
}

TEST(OpensslArguments, ChangeNothingElse) {
  const struct {
    Words given, expected;
  } cases[] = {
      {{"x509", "-subject"}, {"x509", "-nameopt", "compat", "-subject"}},
      {{"x509", "-subject", "-nameopt", "RFC2253"}, {"x509", "-subject", "-nameopt", "RFC2253"}},
      {{"x509", "-noout"}, {"x509", "-noout"}},
      {{"req", "-subject"}, {"req", "-subject"}},
      {{}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(openssl::opensslArguments(c.given), c.expected);
}

// The folder that holds the companions may come first in PATH in two installations at once.
TEST_F(DeveloperTools, CompanionsOfOtherInstallationsAreSkipped) {
  folder_.write("other/System/Library/CoreServices/SystemVersion.plist", "");
  const std::string trap = folder_.write("other/usr/bin/openssl", "#!/bin/sh\nexit 99\n");
  ASSERT_EQ(::chmod(trap.c_str(), 0755), 0);
  const ScopedEnvironment path("PATH", folder_.file("other/usr/bin") + ":/usr/bin:/bin");
  EXPECT_EQ(run({"openssl", "version"}).status, 0);
}

TEST_F(DeveloperTools, PkgutilLooksForTheTools) {
  for (const char* name : {"codesign", "otool"}) script(name, "");
  const std::string id = "com.apple.pkg.CLTools_Executables";
  // Those beside the program count as well, so this needs a copy that stands alone.
  ASSERT_TRUE(copyItem(companion("pkgutil"), folder_.file("root/usr/bin/pkgutil")));
  const auto ask = [&](const Words& words) {
    Command command;
    command.argv = {folder_.file("root/usr/bin/pkgutil")};
    command.argv.insert(command.argv.end(), words.begin(), words.end());
    command.standardError = StandardError::kCapture;
    Outcome outcome;
    EXPECT_TRUE(runProcess(command, &outcome));
    return outcome;
  };
  EXPECT_EQ(ask({"--pkg-info=" + id}).status, 1);
  EXPECT_EQ(ask({"--pkg-info=" + id}).errorOutput, "No receipt for '" + id + "' found at '/'.\n");
  script("nm", "");
  for (const std::string& package : {id, std::string("com.apple.pkg.DeveloperToolsCLI")}) {
    EXPECT_EQ(ask({"--pkg-info=" + package}).status, 0);
    EXPECT_THAT(ask({"--pkg-info", package}).output,
                ContainsRegex("^package-id: " + package +
                              "\nversion: [0-9.]+\nvolume: /\nlocation: /\ninstall-time: "
                              "[0-9]{9,}\n$"));
  }
  EXPECT_EQ(ask({"--pkg-info=com.example.other"}).output, "");
  EXPECT_EQ(ask({"--pkg-info=com.example.other"}).status, 1);
  const struct {
    Words words;
    int status;
    std::string output;  // the beginning of it
  } cases[] = {
      {{}, 1, ""},
      {{"--nonsense"}, 1, ""},
      {{"--pkg-info"}, 1, ""},
      {{"--pkg-info", id, "more"}, 1, ""},
      {{"--help", "more"}, 1, ""},
      {{"--help"}, 0, "Usage: pkgutil"},
      {{"--volume", "/", "--pkg-info", id}, 0, "package-id: " + id + "\n"},
      {{"--pkgs"}, 0, id + "\ncom.apple.pkg.DeveloperToolsCLI\n"},
      {{"--pkgs=.*(CLTools|none).*"}, 0, id + "\n"},
      {{"--pkgs=CLTools"}, 1, ""},
      {{"--pkgs=("}, 1, ""},
      {{"--pkg-info-plist", id}, 0, "<?xml "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const Outcome outcome = ask(c.words);
    EXPECT_EQ(outcome.status, c.status);
    EXPECT_EQ(outcome.output.empty(), c.output.empty());
    EXPECT_THAT(outcome.output, StartsWith(c.output));
  }
  const std::string plist = folder_.write("info.plist", ask({"--pkg-info-plist", id}).output);
  Outcome lint;
  ASSERT_TRUE(runProcess(shellCommand("xmllint --noout '" + plist + "' 2>&1"), &lint));
  EXPECT_EQ(lint.status, 0) << lint.output;
}

TEST_F(DeveloperTools, XcodeSelect) {
  // What is missing depends on the host; the two answers are told apart by the status.
  const Outcome install = run({"xcode-select", "--install"});
  EXPECT_THAT(install.output,
              install.status == 0 ? HasSubstr("are installed\n") : HasSubstr("sudo apt install "));
  expectRun({"xcode-select", "-p"}, 0, hostRoot() + "\n");
  EXPECT_THAT(run({"xcode-select", "-v"}).output, StartsWith("xcode-select version "));
  const struct {
    Words words;
    int status;
    std::string errorOutput;  // the beginning of it
  } cases[] = {
      {{}, 1, "xcode-select: error: no command option given\nUsage: "},
      {{"--nonsense"}, 1, "xcode-select: error: invalid argument '--nonsense'\nUsage: "},
      {{"-p", "more"}, 1, "xcode-select: error: invalid argument 'more'\nUsage: "},
      {{"-s"}, 1, "xcode-select: error: -s needs a folder\nUsage: "},
      {{"-s", "/Applications/Xcode.app"}, 0, "xcode-select: note: this host has one set"},
      {{"--reset"}, 0, "xcode-select: note: this host has one set"},
  };
  for (const auto& c : cases) {
    Words words = {"xcode-select"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.status, c.status) << testing::PrintToString(c.words);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errorOutput, StartsWith(c.errorOutput));
  }
}

TEST_F(DeveloperTools, XcrunFindsAndRunsTools) {
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

TEST_F(DeveloperTools, PackageApplication) {
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

TEST_F(DeveloperTools, PackageApplicationFailures) {
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
