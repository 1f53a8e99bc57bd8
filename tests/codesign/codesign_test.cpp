// The command line: what is accepted, printed and answered.
#include "programs/codesign/Codesign.h"

#include <gtest/gtest.h>

#include "formats/Digest.h"
#include "host/files.h"
#include "host/process.h"
#include "tests/support/SignableImage.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/called_program.h"
#include "tests/support/matchers.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::codesign {
namespace {

using namespace test;  // NOLINT(google-build-using-namespace): builders all over the file

constexpr const char* kEntitlementsText =
    "<plist version=\"1.0\"><dict><key>get-task-allow</key><true/></dict></plist>";
constexpr const char* kInfo =
    "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Demo</string>"
    "<key>CFBundleIdentifier</key><string>com.example.demo</string>"
    "<key>CFBundlePackageType</key><string>APPL</string></dict></plist>";

Outcome codesign(const std::vector<std::string>& words) {
  return called(run, words);
}

class CodesignTest : public testing::Test {
 protected:
  CodesignTest() : isolation_("XDG_DATA_HOME", folder_.file("data")) {
    const IdentityFiles identity = makeIdentity(folder_, "signer");
    keychain_ =
        folder_.write("kc/all.pem", contentsOf(identity.certificate) + contentsOf(identity.key));
    keychain_ = folder_.file("kc");
    sha1_ = hexUpper(digestOf(DigestAlgorithm::kSha1, derOf(identity.certificate)));
    app_ = folder_.file("Demo.app");
    folder_.write("Demo.app/Info.plist", kInfo);
    folder_.write("Demo.app/Demo", SignableImage().build());
    folder_.write("Demo.app/text", "text");
    entitlements_ = folder_.write("ent.plist", kEntitlementsText);
  }

  TemporaryFolder folder_;
  ScopedEnvironment isolation_;
  std::string keychain_, sha1_, app_, entitlements_;
};

TEST_F(CodesignTest, OptionsAndPathInAnyOrder) {
  const std::vector<std::vector<std::string>> orders = {
      {"-f", "-s", sha1_, app_, "--keychain", keychain_},
      {"-f", "-s", "iphone distribution: TEST", "--keychain", keychain_, app_, "--entitlements",
       entitlements_, "--preserve-metadata=requirements"},
      {app_, "--keychain=" + keychain_, "--preserve-metadata=req,ent", "-fs*"},
      {"--sign", "iPhone Distribution: Test", "--keychain", keychain_, "--force",
       "--timestamp=none", "--generate-entitlement-der", "--deep", "--", app_},
  };
  for (const auto& arguments : orders) {
    const Outcome result = codesign(arguments);
    EXPECT_EQ(result.status, 0) << result.errorOutput;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(codesign({"--verify", app_}).status, 0);
  }
}

TEST_F(CodesignTest, UsageErrors) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"-d"},
      {app_},
      {"-s"},
      {"-q", app_},
      {"--nonsense", app_},
      {"-d", "-s", "-", app_},
      {"--e", app_},
      {"--deep=1", "-v", app_},
      {"--verbose=x", "-d", app_},
  };
  for (const auto& arguments : cases) {
    const Outcome result = codesign(arguments);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
    EXPECT_THAT(result.errorOutput, HasSubstr("Usage: codesign"))
        << testing::PrintToString(arguments);
  }
}

TEST_F(CodesignTest, SigningSaysWhatItDid) {
  EXPECT_EQ(codesign({"-s", "-", "-v", app_}).errorOutput,
            app_ + ": signed app bundle with Mach-O thin (arm64) [com.example.demo]\n");
  const Outcome again = codesign({"-s", "-", app_});
  EXPECT_EQ(again.errorOutput, app_ + ": is already signed\ncodesign: -f replaces the signature\n");
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(codesign({"-f", "-s", "-", app_}).errorOutput,
            app_ + ": replacing existing signature\n");
}

TEST_F(CodesignTest, SigningFailures) {
  struct Case {
    std::vector<std::string> arguments;
    std::string error;
  };
  const std::string none = folder_.file("none");
  const Case cases[] = {
      {{"-s", "Nobody", "--keychain", keychain_, app_},
       "Nobody: no identity found (Searched: " + keychain_ + ".)\n"},
      {{"-s", "-", none}, none + ": No such file or directory\n"},
      {{"-s", "-", "--entitlements", none, app_}, none + ": No such file or directory\n"},
      {{"-s", "-", "--preserve-metadata=e,nonsense", app_},
       "\"nonsense\" is not a part of a signature to preserve\n"},
      {{"-s", "-", "-o", "runtime,nonsense", app_}, "unknown option flag \"nonsense\"\n"},
      {{"-s", "-", keychain_},
       keychain_ + ": bundle format unrecognized, invalid, or unsuitable\n"},
  };
  for (const Case& c : cases) {
    const Outcome result = codesign(c.arguments);
    EXPECT_EQ(result.status, 1) << c.error;
    EXPECT_EQ(result.errorOutput, c.error);
  }
}

TEST_F(CodesignTest, SeveralPathsStopAtAFailureUnlessToldToGoOn) {
  const std::string tool = folder_.write("tool", SignableImage().build());
  EXPECT_EQ(codesign({"-s", "-", folder_.file("none"), tool}).status, 1);
  EXPECT_EQ(codesign({"-v", tool}).status, 1);
  EXPECT_EQ(codesign({"-s", "-", "--continue", folder_.file("none"), tool}).status, 1);
  EXPECT_EQ(codesign({"-v", tool}).status, 0);
}

TEST_F(CodesignTest, DisplayLevelsAddUp) {
  ASSERT_EQ(codesign({"-s", sha1_, "--keychain", keychain_, app_}).status, 0);
  const std::string real = *realPath(app_);
  EXPECT_EQ(codesign({"-d", app_}).errorOutput, "Executable=" + real + "/Demo\n");
  const auto keys = [&](const std::vector<std::string>& arguments) {
    const Outcome result = codesign(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    std::string list;
    bool atStart = true, inKey = true;
    for (const char c : result.errorOutput) {
      if (c == '\n') {
        atStart = inKey = true;
        continue;
      }
      inKey = inKey && c != '=';
      if (inKey)
        list += atStart ? (list.empty() ? "" : ",") + std::string(1, c) : std::string(1, c);
      atStart = false;
    }
    return list;
  };
  EXPECT_EQ(keys({"-dv", app_}),
            "Executable,Identifier,Format,CodeDirectory v,Signature size,Signed Time,Info.plist "
            "entries,TeamIdentifier,Sealed Resources version,Internal requirements count");
  const std::string four =
      "Executable,Identifier,Format,CodeDirectory v,VersionPlatform,VersionMin,VersionSDK,Hash "
      "type,CandidateCDHash sha256,CandidateCDHashFull sha256,Hash "
      "choices,CMSDigest,CMSDigestType,Executable Segment base,Executable Segment "
      "limit,Executable Segment flags,Page size,CDHash,Signature size,Authority,Signed "
      "Time,Info.plist entries,TeamIdentifier,Sealed Resources version,Internal requirements count";
  EXPECT_EQ(keys({"--display", "--verbose=4", app_}), four);
  EXPECT_EQ(keys({"-dvvvv", app_}), four);

  const std::string text = codesign({"-dvvvv", app_}).errorOutput;
  for (const char* line :
       {"\nIdentifier=com.example.demo\n", "\nFormat=app bundle with Mach-O thin (arm64)\n",
        "\nVersionMin=851968\n", "\nAuthority=iPhone Distribution: Test\n",
        "\nTeamIdentifier=not set\n", "\nPage size=4096\n", "\nInfo.plist entries=3\n",
        "\nSealed Resources version=2 rules=10 files=1\n", " flags=0x0(none) hashes=4+3 "}) {
    EXPECT_THAT(text, HasSubstr(line));
  }
  EXPECT_THAT(codesign({"-dvvv", app_}).errorOutput,
              HasSubstr("Authority=iPhone Distribution: Test\n"));
}

TEST_F(CodesignTest, DisplayOfUnsignedCodeFails) {
  const std::vector<std::vector<std::string>> cases = {
      {"-d", app_}, {"-d", "--entitlements", ":-", app_}, {"-v", app_}};
  for (const auto& arguments : cases) {
    const Outcome result = codesign(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errorOutput, app_ + ": code object is not signed at all\n");
    EXPECT_EQ(result.output, "");
  }
  EXPECT_THAT(
      codesign({"-v", folder_.write("Demo.ipa", "PK")}).errorOutput,
      EndsWith("codesign: an archive has no signature: unpack it, and name the app inside\n"));
}

TEST_F(CodesignTest, EntitlementsComeOut) {
  ASSERT_EQ(codesign({"-s", "-", "--entitlements", entitlements_, app_}).status, 0);
  EXPECT_EQ(codesign({"-d", "--entitlements", ":-", app_}).output, kEntitlementsText);
  EXPECT_THAT(codesign({"-d", "--entitlements", "-", app_}).output, StartsWith("\xfa\xde\x71\x71"));
  const std::string target = folder_.file("out.plist");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(codesign({"-d", "--entitlements", ":" + target, app_}).status, 0);
  }
  EXPECT_EQ(contentsOf(target), std::string(kEntitlementsText) + kEntitlementsText);

  ASSERT_EQ(codesign({"-f", "-s", "-", app_}).status, 0);
  const Outcome none = codesign({"-d", "--entitlements", ":-", app_});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.output, "");
  const Outcome bad = codesign({"-f", "-s", "-", "--entitlements", app_ + "/text", app_});
  EXPECT_EQ(bad.status, 1);
}

TEST_F(CodesignTest, RequirementsAndCertificatesComeOut) {
  ASSERT_EQ(codesign({"-s", sha1_, "--keychain", keychain_, app_}).status, 0);
  EXPECT_THAT(codesign({"-d", "-r", "-", app_}).output,
              MatchesRegex("designated => identifier \"com.example.demo\" and certificate root = "
                           "H\"[0-9a-f]+\"\n"));
  EXPECT_EQ(codesign({"-d", "--extract-certificates=" + folder_.file("cert"), app_}).status, 0);
  EXPECT_EQ(hexUpper(digestOf(DigestAlgorithm::kSha1, contentsOf(folder_.file("cert0")))), sha1_);
  ASSERT_EQ(codesign({"-f", "-s", "-", app_}).status, 0);
  EXPECT_THAT(codesign({"-d", "-r-", app_}).output,
              MatchesRegex("# designated => cdhash H\"[0-9a-f]+\"\n"));
}

// Requirements in all the forms that the command line takes, stored and read back.
TEST_F(CodesignTest, RequirementsGoIn) {
  const std::string text = "designated => identifier x\nlibrary => anchor apple generic\n";
  const std::string asText = folder_.write("set.txt", text);
  const auto stored = [&](const std::string& argument) {
    const Outcome signedResult = codesign({"-f", "-s", "-", "-r", argument, app_});
    EXPECT_EQ(signedResult.status, 0) << signedResult.errorOutput;
    return codesign({"-d", "-r-", app_}).output;
  };
  EXPECT_EQ(stored(asText), text);
  EXPECT_EQ(stored("=designated => identifier x library => anchor apple generic"), text);
  const std::string code = contentsOf(app_ + "/Demo");
  const size_t at = code.find("\xfa\xde\x0c\x01");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(stored(folder_.write("set", code.substr(at, big32(code, at + 4)))), text);
  ASSERT_EQ(codesign({"-d", "-r", folder_.file("shown"), app_}).status, 0);
  EXPECT_EQ(stored(folder_.file("shown")), text);

  // A signer's own requirement joins what states none.
  ASSERT_EQ(codesign({"-fs", sha1_, "--keychain", keychain_, "-r=host => always", app_}).status, 0);
  EXPECT_THAT(codesign({"-d", "-r-", app_}).output,
              MatchesRegex("host => always\ndesignated => identifier .*\n"));
  ASSERT_EQ(codesign({"-fs", "-", "-r=host => always", app_}).status, 0);
  EXPECT_THAT(codesign({"-d", "-r-", app_}).output,
              MatchesRegex("host => always\n# designated => cdhash H\"[0-9a-f]+\"\n"));

  const std::pair<std::string, std::string> bad[] = {
      {"=identifier x",
       "invalid requirement: line 1, column 1: expected host, guest, designated, library or "
       "plugin, found identifier\n"},
      {folder_.file("none"), folder_.file("none") + ": No such file or directory\n"},
      {folder_.write("cut", code.substr(at, 20)),
       folder_.file("cut") + ": not a compiled requirement set\n"},
  };
  const std::string before = contentsOf(app_ + "/Demo");
  for (const auto& [argument, error] : bad) {
    const Outcome result = codesign({"-f", "-s", "-", "-r", argument, app_});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errorOutput, error);
  }
  EXPECT_EQ(contentsOf(app_ + "/Demo"), before);
}

TEST_F(CodesignTest, TestRequirements) {
  ASSERT_EQ(codesign({"-s", sha1_, "--keychain", keychain_, app_}).status, 0);
  const std::string good =
      app_ + ": valid on disk\n" + app_ + ": satisfies its Designated Requirement\n";
  const std::string failed =
      "test-requirement: code failed to satisfy specified code requirement(s)\n";
  const struct {
    std::string requirement;
    int status;
    std::string error;
  } cases[] = {
      {"=identifier com.example.demo and certificate leaf[subject.OU] = \"TEAM123456\"", 0,
       good + app_ + ": explicit requirement satisfied\n"},
      {"=certificate leaf = H\"" + sha1_ + "\" and info[CFBundleExecutable] = D*", 0,
       good + app_ + ": explicit requirement satisfied\n"},
      {"=anchor apple generic", 3, good + failed},
      {folder_.write("requirement", "identifier other # a file\n"), 3, good + failed},
      {"=identifier", 1,
       "invalid requirement: line 1, column 11: expected a string, found the end\n"},
      {"=designated => always", 1,
       "invalid requirement: line 1, column 1: expected a condition, found designated\n"},
  };
  for (const auto& c : cases) {
    const Outcome result = codesign({"-vv", "-R", c.requirement, app_});
    EXPECT_EQ(result.status, c.status) << c.requirement;
    EXPECT_EQ(result.errorOutput, c.error) << c.requirement;
  }
}

TEST_F(CodesignTest, IdentitiesThatCannotSignAreRefused) {
  IdentityRequest request;
  request.subject = "/CN=Expired Developer";
  request.days = -1;
  const IdentityFiles expired = makeIdentity(folder_, "expired", request);
  request = {};
  request.subject = "/CN=Lonely Developer";
  const IdentityFiles lonely = makeIdentity(folder_, "lonely", request);
  request.subject = "/CN=Other Developer";
  const IdentityFiles other = makeIdentity(folder_, "other", request);
  request.subject = "/CN=Another Developer";
  const IdentityFiles another = makeIdentity(folder_, "another", request);
  const auto both = [](const IdentityFiles& files) {
    return contentsOf(files.certificate) + contentsOf(files.key);
  };
  const std::string keychain = folder_.write(
      "several.pem", both(expired) + contentsOf(lonely.certificate) + both(other) + both(another));
  const std::pair<const char*, std::string> cases[] = {
      {"Expired",
       "Expired: this identity cannot be used for signing code (The certificate "
       "\"Expired Developer\" is valid from "},
      {"Lonely", "Lonely: no identity found (The certificate \"Lonely Developer\" is in " +
                     keychain + ", but its private key is not.)"},
      {"other developer", "other developer: ambiguous (matches \""},
      {"OtherX", "OtherX: no identity found (Searched: " + keychain + ".)\n"},
  };
  for (const auto& [name, error] : cases) {
    const Outcome result = codesign({"-s", name, "--keychain", keychain, app_});
    EXPECT_EQ(result.status, 1) << name;
    EXPECT_THAT(result.errorOutput, StartsWith(error));
  }
  // A whole name wins over names that it is a part of.
  EXPECT_EQ(codesign({"-s", "Other Developer", "--keychain", keychain, app_}).status, 0);
  EXPECT_THAT(codesign({"-dvv", app_}).errorOutput, HasSubstr("\nAuthority=Other Developer\n"));
}

TEST_F(CodesignTest, RuntimeDryRunAndTimestamp) {
  const std::string unsignedCode = contentsOf(app_ + "/Demo");
  EXPECT_EQ(codesign({"-n", "-v", "-s", "-", app_}).errorOutput,
            app_ + ": signed app bundle with Mach-O thin (arm64) [com.example.demo]\n");
  EXPECT_EQ(contentsOf(app_ + "/Demo"), unsignedCode);
  EXPECT_FALSE(fileExists(app_ + "/_CodeSignature"));

  const Outcome stamped = codesign({"--timestamp", "-s", "-", app_});
  EXPECT_EQ(stamped.status, 0);
  EXPECT_THAT(stamped.errorOutput, StartsWith("warning: no time stamp is added"));

  ASSERT_EQ(codesign({"-f", "-s", "-", "-o", "runtime", "--runtime-version", "13.1", app_}).status,
            0);
  const auto shown = [&] { return codesign({"-dvvv", app_}).errorOutput; };
  EXPECT_THAT(shown(), HasSubstr("CodeDirectory v=20500 "));
  EXPECT_THAT(shown(), HasSubstr("flags=0x10002(adhoc,runtime) "));
  EXPECT_THAT(shown(), HasSubstr("\nRuntime Version=13.1.0\n"));
  EXPECT_EQ(codesign({"-v", "--strict", app_}).status, 0);
  ASSERT_EQ(codesign({"-f", "-s", "-", "--preserve-metadata=flags,runtime", app_}).status, 0);
  EXPECT_THAT(shown(), HasSubstr("\nRuntime Version=13.1.0\n"));
  EXPECT_EQ(codesign({"-f", "-s", "-", "--runtime-version", "13.x", app_}).errorOutput,
            "runtime version \"13.x\" is not of the form 10.15.4\n");
}

TEST_F(CodesignTest, HelpAndArchitectures) {
  const Outcome help = codesign({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.errorOutput, "");
  for (const char* text : {"Usage: codesign -s identity", "--preserve-metadata", "Status: 0 "}) {
    EXPECT_THAT(help.output, HasSubstr(text));
  }
  const std::string fat =
      folder_.write("fat", buildUniversal({SignableImage::armv7(), SignableImage()}));
  ASSERT_EQ(codesign({"-s", "-", fat}).status, 0);
  std::string damaged = contentsOf(fat);
  damaged[0x4000 + 0x1100] ^= 1;  // in the code of the first
  folder_.write("fat", damaged);
  EXPECT_EQ(codesign({"-v", "-a", "arm64", fat}).status, 0);
  EXPECT_THAT(codesign({"-v", fat}).errorOutput, EndsWith("\nIn architecture: armv7\n"));
  EXPECT_EQ(codesign({"-v", "-a", "ppc", fat}).errorOutput, fat + ": no architecture ppc in it\n");
}

TEST_F(CodesignTest, VerifyAnswers) {
  ASSERT_EQ(codesign({"-s", sha1_, "--keychain", keychain_, app_}).status, 0);
  EXPECT_EQ(codesign({"-v", app_}).errorOutput, "");
  EXPECT_EQ(codesign({"--verify", "-v", app_}).errorOutput,
            app_ + ": valid on disk\n" + app_ + ": satisfies its Designated Requirement\n");

  // Requirements of the first signer kept under another one are no longer satisfied.
  ASSERT_EQ(codesign({"-f", "-s", "-", "--preserve-metadata=requirements", app_}).status, 0);
  const Outcome other = codesign({"-vv", app_});
  EXPECT_EQ(other.status, 3);
  EXPECT_EQ(other.errorOutput,
            app_ + ": valid on disk\n" + app_ +
                ": does not satisfy its designated Requirement\ncodesign: the signature is intact; "
                "the requirement is an earlier signer's, which devices do not look at\n");

  folder_.write("Demo.app/text", "changed");
  const Outcome changed = codesign({"-v", app_});
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.errorOutput,
            app_ + ": a sealed resource is missing or invalid\nfile modified: " + *realPath(app_) +
                "/text\n");
}

TEST_F(CodesignTest, RemovesSignatures) {
  ASSERT_EQ(codesign({"-s", "-", app_}).status, 0);
  EXPECT_EQ(codesign({"--remove-signature", app_}).status, 0);
  EXPECT_FALSE(fileExists(app_ + "/_CodeSignature"));
  EXPECT_EQ(codesign({"-d", app_}).status, 1);
}

TEST_F(CodesignTest, BuiltProgramUsesItsStreams) {
  Command command;
  command.argv = {TOVREK_BUILT_FOLDER "/host/usr/bin/codesign", "-s", "-", app_};
  Outcome outcome;
  ErrorText error;
  ASSERT_TRUE(runProcess(command, &outcome, &error)) << error.text();
  EXPECT_EQ(outcome.status, 0);
  command.argv = {TOVREK_BUILT_FOLDER "/host/usr/bin/codesign", "--display", "--verbose=4", app_};
  command.standardError = StandardError::kCapture;
  ASSERT_TRUE(runProcess(command, &outcome, &error)) << error.text();
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.errorOutput, HasSubstr("\nSignature=adhoc\n"));
  EXPECT_THAT(outcome.errorOutput, HasSubstr("\nTeamIdentifier=not set\n"));
}

}  // namespace
}  // namespace tovrek::codesign
