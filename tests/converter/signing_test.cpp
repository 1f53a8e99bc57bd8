#include <fmt/format.h>
#include <unistd.h>

#include "converter/code_signing.h"
#include "converter/library_check.h"
#include "host/host_info.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/FewOpenFiles.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

constexpr char kTeamOnError[] = "echo TeamIdentifier=ABCDE12345 >&2";
constexpr char kKeepEntitlements[] = "--preserve-metadata=requirements,entitlements";

class Signing : public ConverterTest {
 protected:
  Signing() { host.addTool("codesign", kTeamOnError); }
  std::vector<std::string> calls() { return host.allCalls(app()); }
};

TEST_F(Signing, ArgumentOrders) {
  const std::string entitlements = write("new.plist", "");
  const auto subject = run();
  const auto signEach = [&] {
    host.forgetCalls();
    EXPECT_TRUE(CodeSignOrvaneDylib(subject, app(), &error));
    EXPECT_TRUE(CodeSignFrameworks(subject, app(), &error));
    EXPECT_TRUE(CodeSign(subject, app(), entitlements, &error));
    EXPECT_TRUE(CodeSign(subject, app(), "/nowhere", &error));
    EXPECT_TRUE(CodeSign(subject, app(), std::nullopt, &error));
  };
  write("Demo.app/Frameworks/A.dylib", "");
  const std::string dylib = "@/OrvaneDylib.bundle/OrvaneDylib.dylib";
  const std::string shown = "codesign|--display|--verbose=4|" + dylib;

  signEach();
  EXPECT_THAT(calls(), ElementsAre("codesign|-f|-s|ID|" + dylib, shown,
                                   "codesign|-f|-s|ID|@/Frameworks/A.dylib",
                                   "codesign|-f|-s|ID|@|--entitlements|" + entitlements +
                                       "|--preserve-metadata=requirements",
                                   fmt::format("codesign|-f|-s|ID|@|{}", kKeepEntitlements),
                                   fmt::format("codesign|-f|-s|ID|@|{}", kKeepEntitlements)));
  // The keychain stands behind the path for frameworks only.
  useKeychain("/k c");
  signEach();
  EXPECT_THAT(
      calls(),
      ElementsAre("codesign|-f|-s|ID|--keychain|/k c|" + dylib, shown,
                  "codesign|-f|-s|ID|@/Frameworks/A.dylib|--keychain|/k c",
                  "codesign|-f|-s|ID|--keychain|/k c|@|--entitlements|" + entitlements +
                      "|--preserve-metadata=requirements",
                  fmt::format("codesign|-f|-s|ID|--keychain|/k c|@|{}", kKeepEntitlements),
                  fmt::format("codesign|-f|-s|ID|--keychain|/k c|@|{}", kKeepEntitlements)));
  // Asked for, but not named: the usual search finds it.
  context.keychain.setKeychainPath(std::nullopt);
  signEach();
  EXPECT_THAT(calls(), Each(Not(HasSubstr("--keychain"))));
}

TEST_F(Signing, FrameworksInnerCodeFirst) {
  write("Demo.app/Frameworks/B.framework/B", "");
  write("Demo.app/Frameworks/B.framework/Frameworks/Inner.framework/Inner", "");
  write("Demo.app/Frameworks/B.framework/Other/skipped.dylib", "");
  write("Demo.app/Frameworks/a.txt", "");
  write("Demo.app/Frameworks/folder/deep.dylib", "");
  write("Demo.app/Frameworks/upper.DYLIB", "");
  const std::string logFile = write("log", "");
  context.loggers.toolkit.setLogFilename(logFile);
  EXPECT_TRUE(CodeSignFrameworks(run(), app(), &error));
  // Also a library is asked for code that it holds.
  for (const char* item : {"", "/B.framework/Frameworks", "/folder/deep.dylib/Frameworks"}) {
    EXPECT_THAT(contentsOf(logFile), HasSubstr("Code signing binaries located in folder " + app() +
                                               "/Frameworks" + item + "\n"));
  }
  EXPECT_THAT(calls(),
              ElementsAre("codesign|-f|-s|ID|@/Frameworks/B.framework/Frameworks/Inner.framework",
                          "codesign|-f|-s|ID|@/Frameworks/B.framework",
                          "codesign|-f|-s|ID|@/Frameworks/folder/deep.dylib"));
}

TEST_F(Signing, FrameworksStopAtTheFirstFailure) {
  host.addTool("codesign", "case $4 in *B.dylib) exit 3;; esac");
  for (const char* name : {"A", "B", "C"})
    write(fmt::format("Demo.app/Frameworks/{}.dylib", name), "");
  EXPECT_FALSE(CodeSignFrameworks(run(), app(), &error));
  EXPECT_EQ(error.text(), "Failed to execute dylibcodesign with exit code: 3");
  EXPECT_EQ(calls().size(), 2U);
}

TEST_F(Signing, FrameworkLinksDoNotGoRound) {
  write("Demo.app/Frameworks/A.framework/Frameworks/x.txt", "");
  ASSERT_EQ(::symlink("..", (app() + "/Frameworks/A.framework/Frameworks/B.framework").c_str()), 0);
  EXPECT_TRUE(CodeSignFrameworks(run(), app(), &error));
  EXPECT_THAT(calls(),
              ElementsAre("codesign|-f|-s|ID|@/Frameworks/A.framework/Frameworks/B.framework",
                          "codesign|-f|-s|ID|@/Frameworks/A.framework"));
}

TEST_F(Signing, NoFrameworksNoRuns) {
  EXPECT_TRUE(CodeSignFrameworks(run(), app(), &error));
  write("Demo.app/Frameworks/readme.txt", "");
  EXPECT_TRUE(CodeSignFrameworks(run(), app(), &error));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Signing, BrokenExtensionsStopNothing) {
  host.addTool("codesign", "exit 1");
  write("Demo.app/PlugIns/A.appex/PlugIns/B.appex/Info.plist", "");
  write("Demo.app/PlugIns/c.APPEX/Info.plist", "");
  request.isSDK = true;  // whose extensions are not rebuilt
  EXPECT_TRUE(CodeSignExtensions(run(), app(), &error));
  EXPECT_THAT(calls(),
              ElementsAre(fmt::format("codesign|-f|-s|ID|@/PlugIns/A.appex|{}", kKeepEntitlements),
                          fmt::format("codesign|-f|-s|ID|@/PlugIns/A.appex/PlugIns/B.appex|{}",
                                      kKeepEntitlements)));
  // Executables that are none are no reason either.
  request.isSDK = false;
  EXPECT_TRUE(CodeSignExtensions(run(), app(), &error));
  EXPECT_EQ(calls().size(), 4U);
}

TEST_F(Signing, TeamIdentifier) {
  const std::pair<const char*, bool> cases[] = {
      {"TeamIdentifier=ABCDE12345", true},
      {"TeamIdentifier=not set", false},
      {"TeamIdentifier=A\\nTeamIdentifier=not set", true},
      {"Identifier=x", false},
      {" TeamIdentifier=A", false},
      {"TeamIdentifier", false},
  };
  for (const auto& [output, expected] : cases) {
    SCOPED_TRACE(output);
    host.addTool("codesign", fmt::format("printf '{}\\n' >&2; exit 1", output));
    EXPECT_EQ(verifyCodeSignatureForiOS8("x"), expected);
    host.addTool("codesign", fmt::format("printf '{}\\n'", output));
    EXPECT_FALSE(verifyCodeSignatureForiOS8("x"));  // standard error counts
  }
}

TEST_F(Signing, TeamWarningOnlyFillsAnEmptySlot) {
  host.addTool("codesign");
  EXPECT_TRUE(CodeSignOrvaneDylib(run(), app(), &error));
  EXPECT_THAT(error.text(), HasSubstr("not correctly signed for iOS 8."));
  error.set("earlier");
  EXPECT_TRUE(CodeSignOrvaneDylib(run(), app(), &error));
  EXPECT_EQ(error.text(), "earlier");
}

TEST_F(Signing, FailuresNameTheStep) {
  host.addTool("codesign", "exit 2");
  EXPECT_FALSE(CodeSignOrvaneDylib(run(), app(), &error));
  EXPECT_EQ(error.text(), "Failed to execute dylibcodesign with exit code: 2");
  EXPECT_FALSE(CodeSign(run(), app(), std::nullopt, &error));
  EXPECT_EQ(error.text(),
            "Failed to execute codesign:withEntitlement:withError: -  with exit code: 2");
}

TEST_F(Signing, PreparationRemovesTheOldSignature) {
  const std::string outside = write("outside/kept", "");
  write("Demo.app/_CodeSignature/CodeResources", "");
  ASSERT_EQ(::symlink(outside.c_str(), (app() + "/CodeResources").c_str()), 0);
  EXPECT_FALSE(verifyCodeSigningPrerequisites(run(), app(), "", &error));
  EXPECT_THAT(error.text(), HasSubstr("Failed to copy file from " + folder.file("Data") +
                                      "/ResourceRules.plist to " + app()));
  write("Data/ResourceRules.plist", "rules");
  EXPECT_TRUE(verifyCodeSigningPrerequisites(run(), app(), "", &error));
  EXPECT_FALSE(fileExists(app() + "/_CodeSignature"));
  EXPECT_FALSE(itemExistsNoFollow(app() + "/CodeResources"));
  EXPECT_TRUE(fileExists(outside));
  EXPECT_EQ(contentsOf(app() + "/ResourceRules.plist"), "rules");
  // Rules of the app's own stay.
  write("Demo.app/ResourceRules.plist", "own");
  EXPECT_TRUE(verifyCodeSigningPrerequisites(run(), app(), "", &error));
  EXPECT_EQ(contentsOf(app() + "/ResourceRules.plist"), "own");
}

TEST_F(Signing, MakersSignatureNeedsAPipe) {
  const std::string program = app() + "/Demo";
  ErrorText reason;
  {
    // clang's sanitizer needs a pipe as well, for a look at any object with virtual functions.
    const FewOpenFiles none(0);
    EXPECT_FALSE(VerifyOrvaneDylib(program, &reason));
  }
  EXPECT_EQ(reason.text(),
            "Failed to validate that dylib is signed by Orvane (could not create pipe).");
}

TEST_F(Signing, FingerprintTool) {
  const std::string tool = programFolder() + "/incore_macho";
  EXPECT_FALSE(EmbedOpenSSLFipsFingerprint(log(), app(), &error));
  EXPECT_EQ(error.text(), "Failed to execute incore_macho with exit code: 127");
  const std::pair<int, bool> cases[] = {{0, true}, {255, true}, {1, false}};
  for (const auto& [status, expected] : cases) {
    host.addTool(tool, fmt::format("exit {}", status));
    error.clear();
    EXPECT_EQ(EmbedOpenSSLFipsFingerprint(log(), app(), &error), expected);
    EXPECT_EQ(error.text(), expected ? "" : "Failed to execute incore_macho with exit code: 1");
  }
  EXPECT_THAT(calls(), ::testing::Each("incore_macho|--debug|-exe|@/Demo"));
}

}  // namespace
}  // namespace tovrek::test
