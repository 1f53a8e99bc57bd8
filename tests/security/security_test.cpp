#include <sys/stat.h>

#include "formats/Certificate.h"
#include "formats/Digest.h"
#include "host/files.h"
#include "tests/security/SecurityTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

// The steps of a build server's script, written for a Mac.
TEST_F(SecurityTest, BuildServerScript) {
  const IdentityFiles id = makeNamed("id", "iPhone Distribution: Acme");
  const std::string p12 = makePkcs12(folder_, "dist", id, "p12pw", {"-legacy"});
  const std::string path = dataFolder() + "/build.keychain";

  expectRun({"security", "create-keychain", "-p", "pw", "build.keychain"}, 0, "");
  expectRun({"security", "create-keychain", "-p", "pw", "build.keychain"}, 48, "",
            "security: SecKeychainCreate build.keychain: A keychain with the same name already "
            "exists.\n");
  expectRun({"security", "list-keychains", "-d", "user", "-s", "build.keychain", "login.keychain"},
            0, "");
  expectRun({"security", "list-keychains", "-d", "user"}, 0,
            "    \"" + path + "\"\n    \"" + dataFolder() + "/keychain\"\n");
  expectRun({"security", "default-keychain", "-s", "build.keychain"}, 0, "");
  expectRun({"security", "default-keychain"}, 0, "    \"" + path + "\"\n");
  expectRun({"security", "unlock-keychain", "-p", "no", "build.keychain"}, 51, "",
            "security: SecKeychainUnlock build.keychain: The user name or passphrase you entered "
            "is not correct.\n");
  expectRun({"security", "unlock-keychain", "-p", "pw", "build.keychain"}, 0, "");
  expectRun({"security", "set-keychain-settings", "-lut", "21600", "build.keychain"}, 0, "");
  expectRun(
      {"security", "import", p12, "-k", "build.keychain", "-P", "no", "-T", "/usr/bin/codesign"}, 1,
      "",
      "security: SecKeychainItemImport: MAC verification failed during PKCS12 import (wrong "
      "password?)\n");
  expectRun({"security", "import", p12, "-k", "~/Library/Keychains/build.keychain-db", "-P",
             "p12pw", "-A", "-T", "/usr/bin/codesign", "-T", "/usr/bin/security", "-x"},
            0, "1 identity imported.\n");
  expectRun({"security", "import", p12, "-k", "build.keychain", "-P", "p12pw"}, 45, "",
            "security: SecKeychainItemImport: The specified item already exists in the "
            "keychain.\n");
  expectRun({"security", "set-key-partition-list", "-S", "apple-tool:,apple:", "-s", "-k", "pw",
             "build.keychain"},
            0, "");
  expectRun({"security", "show-keychain-info", "build.keychain"}, 0, "",
            "Keychain \"" + path + "\" lock-on-sleep timeout=21600s\n");
  expectRun({"security", "set-keychain-settings", "build"}, 0, "");
  expectRun({"security", "show-keychain-info", "build"}, 0, "",
            "Keychain \"" + path + "\" no-timeout\n");
  expectRun({"security", "find-identity", "-v", "-p", "codesigning"}, 0,
            "  1) " + upperDigest(id) +
                " \"iPhone Distribution: Acme\"\n     1 valid identities found\n");
  expectRun({"security", "lock-keychain", "build.keychain"}, 0, "");
  expectRun({"security", "delete-keychain", "build.keychain"}, 0, "");
  expectRun({"security", "delete-keychain", "build.keychain"}, 50, "",
            "security: SecKeychainDelete: The specified keychain could not be found.\n");
  expectRun({"security", "list-keychains"}, 0, "    \"" + dataFolder() + "/keychain\"\n");
}

TEST_F(SecurityTest, IdentitiesWithExpiredOnes) {
  const IdentityFiles good = makeNamed("good", "Good \"quoted\"");
  const IdentityFiles old = makeNamed("old", "Old", -1);
  expectRun({"security", "find-identity", "-v", "-p", "codesigning"}, 0,
            "     0 valid identities found\n");
  for (const auto& id : {good, old}) {
    expectRun({"security", "import", makePkcs12(folder_, "m", id, ""), "-P", ""}, 0,
              "1 identity imported.\n");
  }
  const std::string goodLine = upperDigest(good) + " \"Good \"quoted\"\"\n";
  const std::string oldLine = upperDigest(old) + " \"Old\" (CSSMERR_TP_CERT_EXPIRED)\n";
  const bool goodFirst = upperDigest(good) < upperDigest(old);  // files are named by digest
  expectRun({"security", "find-identity", "-p", "codesigning"}, 0,
            "\nPolicy: Code Signing\n  Matching identities\n  1) " +
                (goodFirst ? goodLine : oldLine) + "  2) " + (goodFirst ? oldLine : goodLine) +
                "     2 identities found\n\n  Valid identities only\n  1) " + goodLine +
                "     1 valid identities found\n");
}

TEST_F(SecurityTest, ImportsOfSingleItems) {
  const IdentityFiles id = makeNamed("id", "One");
  const std::string der = folder_.write("c.cer", derOf(id.certificate));
  const std::string both =
      folder_.write("both.pem", contentsOf(id.key) + contentsOf(id.certificate));
  expectRun({"security", "import", der}, 0, "1 certificate imported.\n");
  expectRun({"security", "import", id.certificate}, 45, "",
            "security: SecKeychainItemImport: The specified item already exists in the "
            "keychain.\n");
  expectRun({"security", "import", both, "-t", "cert"}, 45, "",
            "security: SecKeychainItemImport: The specified item already exists in the "
            "keychain.\n");
  expectRun({"security", "import", both, "-t", "priv"}, 0, "1 key imported.\n");
  const std::string chain =
      folder_.write("chain.pem", contentsOf(makeNamed("x", "X").certificate) +
                                     contentsOf(makeNamed("y", "Y").certificate));
  expectRun({"security", "import", "-f", "pemseq", chain}, 0, "2 certificates imported.\n");

  const std::string text = folder_.write("text.txt", "no certificate");
  expectRun({"security", "import", text}, 1, "",
            "security: SecKeychainItemImport: Unknown format in import.\n");
  expectRun({"security", "import", "missing.p12"}, 1, "",
            "security: Error reading infile missing.p12: No such file or directory\n");
  expectRun(
      {"security", "import", der, "-k", "/nowhere/x.keychain"}, 50, "",
      "security: SecKeychainItemImport: The specified keychain could not be found.\n"
      "security: there is no /nowhere/x.keychain: security create-keychain makes keychains\n");
  EXPECT_FALSE(fileExists("/nowhere"));

  struct stat info {};
  ASSERT_EQ(::stat((dataFolder() + "/keychain").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
}

TEST_F(SecurityTest, FindsCertificates) {
  const IdentityFiles id = makeNamed("id", "iPhone Distribution: Zürich");
  expectRun({"security", "import", id.certificate}, 0, "1 certificate imported.\n");
  const std::string der = derOf(id.certificate);
  const std::string digests = "SHA-256 hash: " + hexUpper(digestOf(DigestAlgorithm::kSha256, der)) +
                              "\nSHA-1 hash: " + upperDigest(id) + "\n";
  // Without a keychain's name those of the system come behind the user's.
  expectRun({"security", "find-certificate", "-a", "-Z", "-p", dataFolder() + "/keychain"}, 0,
            digests + contentsOf(id.certificate));
  EXPECT_THAT(run({"security", "find-certificate", "-a", "-Z", "-p"}).output,
              StartsWith(digests + contentsOf(id.certificate) + "SHA-256 hash: "));

  const Outcome shown = run({"security", "find-certificate", "-c", "IPHONE distribution", "-Z"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.output, StartsWith(digests + "keychain: \"" + dataFolder() +
                                       "/keychain\"\nversion: 256\nclass: 0x80001000 "
                                       "\nattributes:\n    \"alis\"<blob>=0x"));
  EXPECT_THAT(shown.output, HasSubstr("  \"iPhone Distribution: Z\\303\\274rich\"\n"));
  EXPECT_THAT(shown.output, HasSubstr("\"cenc\"<uint32>=0x00000003 \n"));
  EXPECT_THAT(shown.output, ContainsRegex("\"skid\"<blob>=0x[0-9A-F]{40}  \""));

  expectRun({"security", "find-certificate", "-c", "Nobody"}, 44, "",
            "security: SecKeychainSearchCopyNext: The specified item could not be found in the "
            "keychain.\n");
  expectRun({"security", "find-certificate", "-a", "-c", "Nobody"}, 0, "");
  expectRun({"security", "find-certificate", "-a", "nowhere.keychain"}, 50, "",
            "security: SecKeychainSearchCopyNext: The specified keychain could not be found.\n");
}

TEST_F(SecurityTest, DecodesSignedMessages) {
  const IdentityFiles id = makeNamed("id", "Signer", -1);  // nobody looks at the signer
  const std::string content =
      std::string("<plist>\0\r\n\xff</plist>\n", 21) + std::string(100000, 'x');
  const std::string plain = folder_.write("plain", content);
  const auto sign = [&](const std::string& name, const std::vector<std::string>& options) {
    std::vector<std::string> words = {
        "cms",    "-sign", "-binary", "-outform", "DER",  "-signer",         id.certificate,
        "-inkey", id.key,  "-in",     plain,      "-out", folder_.file(name)};
    words.insert(words.end(), options.begin(), options.end());
    runOpenssl(words);
    return folder_.file(name);
  };
  const std::string der = sign("der", {"-nodetach"});
  // Indefinite lengths, the content in pieces.
  const std::string ber = sign("ber", {"-nodetach", "-stream", "-indef"});
  const std::string detached = sign("detached", {});
  std::string bytes = contentsOf(der);
  const size_t at = bytes.find("xxxx");
  bytes[at] = 'y';
  const std::string forged = folder_.write("forged", bytes);
  std::string changed = content;
  changed[content.find("xxxx")] = 'y';

  expectRun({"security", "cms", "-D", "-i", der}, 0, content);
  expectRun({"security", "cms", "-D", "-i", ber}, 0, content);
  expectRun({"security", "cms", "-D", "-n", "-u", "6", "-i", forged}, 0, changed);
  expectRun({"security", "cms", "-D", "-i", detached, "-c", plain}, 0, content);
  expectRun({"security", "cms", "-D", "-i", detached}, 0, "");
  EXPECT_EQ(run({"security", "cms", "-D"}, contentsOf(ber)).output, content);
  expectRun({"security", "cms", "-D", "-i", der, "-o", "out.plist"}, 0, "");
  EXPECT_EQ(contentsOf(folder_.file("out.plist")), content);
  expectRun({"security", "cms", "-D", "-i", der, "-o", "/dev/null"}, 0, "");
  EXPECT_TRUE(fileExists("/dev/null") && !fileSize("/dev/null").value_or(1));
}

TEST_F(SecurityTest, RefusesWhatIsNoSignedMessage) {
  const IdentityFiles id = makeNamed("id", "Signer");
  const std::string plain = folder_.write("plain", "content");
  const std::string sealed = folder_.file("sealed");
  runOpenssl({"cms", "-encrypt", "-in", plain, "-outform", "DER", "-out", sealed, "-aes128",
              "-secretkey", std::string(32, '0'), "-secretkeyid", "01"});
  const std::string signedFile = folder_.file("signed");
  runOpenssl({"cms", "-sign", "-nodetach", "-outform", "DER", "-signer", id.certificate, "-inkey",
              id.key, "-in", plain, "-out", signedFile});
  const std::string cut = folder_.write("cut", contentsOf(signedFile).substr(0, 40));
  const std::string empty = folder_.write("empty", "");
  const auto problem = [](const std::string& reason) {
    return "security: failed to decode message: " + reason + "\nsecurity: problem decoding\n";
  };
  for (const std::string& file : {plain, cut, empty}) {
    expectRun({"security", "cms", "-D", "-i", file}, 1, "",
              problem("the data is not a CMS message"));
  }
  expectRun({"security", "cms", "-D", "-i", sealed}, 1, "",
            problem("the message is not a signed one"));
  expectRun({"security", "cms", "-D", "-i", "missing"}, 1, "",
            "security: unable to open \"missing\" for reading: No such file or directory\n");
  const Outcome bad = run({"security", "cms", "-D", "-k", "/no/such", "-i", signedFile});
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.output, "");
  EXPECT_THAT(bad.errorOutput, StartsWith("security: unable to open keychain \"/no/such\": "));
  EXPECT_EQ(run({"security", "cms", "-D", "-i", signedFile, "-o", "/no/such/file"}).status, 1);
}

// Behind the original's line stands what there is to do.
TEST_F(SecurityTest, AdviceOfOurs) {
  const std::string p12 = makePkcs12(folder_, "m", makeNamed("x", "X"), "secret");
  expectRun({"security", "import", p12}, 1, "",
            "security: SecKeychainItemImport: MAC verification failed during PKCS12 import (wrong "
            "password?)\nsecurity: no password was given: -P PASSWORD, or -P file:PATH\n");
  expectRun({"security", "import", p12, "-P", "wrong"}, 1, "",
            "security: SecKeychainItemImport: MAC verification failed during PKCS12 import (wrong "
            "password?)\n");
  EXPECT_THAT(run({"security", "find-identity", "-p", "codesign"}).errorOutput,
              StartsWith("security: unknown policy \"codesign\"\nUsage: find-identity"));
  expectRun({"security", "list-keychains", "-s", "/no/such"}, 0, "");
  expectRun({"security", "find-identity", "-v"}, 0, "     0 valid identities found\n",
            "security: /no/such: No such file or directory\n");
}

TEST_F(SecurityTest, WrongUsage) {
  const struct {
    std::vector<std::string> words;
    int status;
  } cases[] = {
      {{"security"}, 2},
      {{"security", "-z"}, 2},
      {{"security", "no-such-command"}, 1},
      {{"security", "help", "no-such-command"}, 1},
      {{"security", "cms", "-i", "x"}, 2},
      {{"security", "cms", "-D", "-i"}, 2},
      {{"security", "import"}, 2},
      {{"security", "import", "a", "b"}, 2},
      {{"security", "import", "a", "-f", "nonsense"}, 2},
      {{"security", "find-identity", "-p", "nonsense"}, 2},
      {{"security", "create-keychain", "-p", "x"}, 2},
      {{"security", "delete-keychain"}, 2},
      {{"security", "list-keychains", "stray"}, 2},
      {{"security", "keychain"}, 1},
      {{"security", "delete"}, 1},  // which one?
      {{"security", "-p"}, 2},
      {{"security", "set-keychain-settings", "-t", "1h"}, 2},
      {{"security", "set-keychain-password", "-x"}, 2},
      {{"security", "cms", "-D", "-S"}, 2},
      {{"security", "cms", "-S"}, 2},
      {{"security", "delete-certificate"}, 2},
      {{"security", "delete-identity", "build.keychain"}, 2},
      {{"security", "export", "-t", "nonsense"}, 2},
      {{"security", "export", "-f", "nonsense"}, 2},
      {{"security", "add-certificates"}, 2},
      {{"security", "add-trusted-cert", "a", "b"}, 2},
      {{"security", "verify-cert"}, 2},
      {{"security", "verify-cert", "-c"}, 2},
      {{"security", "list-keychains", "-d", "nonsense"}, 2},
  };
  for (const auto& c : cases) {
    const Outcome outcome = run(c.words);
    EXPECT_EQ(outcome.status, c.status) << testing::PrintToString(c.words);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errorOutput,
                c.status == 2 ? HasSubstr("Usage: ") : HasSubstr("unknown command"));
  }
  EXPECT_THAT(run({"security", "help"}).output, HasSubstr("find-identity"));
  EXPECT_THAT(run({"security", "help", "cms"}).output, StartsWith("Usage: cms -D"));
  expectRun({"security", "cms", "--help"}, 0, run({"security", "help", "cms"}).output);
  expectRun({"security", "list-key"}, 0, run({"security", "list-keychains"}).output);
}

// The pieces that public guides for build servers put together, in one shell that stops at the
// first failure. The login keychain is expected to exist.
TEST_F(SecurityTest, ShellScriptsOfBuildServers) {
  const IdentityFiles id = makeNamed("id", "iPhone Distribution: Acme");
  makePkcs12(folder_, "dist", id, "", {"-legacy"});
  Command command = shellCommand(R"sh(set -eu
    security unlock-keychain -p "any" login.keychain
    security set-keychain-settings -t 3600 -l ~/Library/Keychains/login.keychain-db
    security create-keychain -p "" build.keychain
    security list-keychain -d user -s $(security list-keychains -d user | tr -d '"') build.keychain
    security import dist.p12 -k ~/Library/Keychains/build.keychain -P "" -T /usr/bin/codesign
    security set-key-partition-list -S apple-tool:,apple:,codesign: -s -k "" build.keychain >/dev/null
    NAME=$(security find-identity -v -p codesigning | grep -o '"iPhone Distribution: .*"' | tr -d '"')
    security find-certificate -c "$NAME" -p | /usr/bin/openssl x509 -noout -subject -nameopt compat
    HASH=$(security find-certificate -a -c "$NAME" -Z | awk '/SHA-1/ { print $NF }')
    echo text | security cms -S -N "$NAME" | security cms -D
    security lock-keychain -a
    security delete-identity -Z "$HASH" ~/Library/Keychains/build.keychain-db
    security delete-keychain build.keychain
    security list-keychains | wc -l
  )sh");
  command.workingDirectory = folder_.path();
  command.standardError = StandardError::kMergeIntoOutput;
  Outcome outcome;
  ASSERT_TRUE(runProcess(command, &outcome));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "1 identity imported.\nsubject=/CN=iPhone Distribution: Acme/OU=TEAM123456/O=Test\n"
            "text\n1\n");
}

// A password that is not given with -p comes from standard input.
TEST_F(SecurityTest, PasswordsFromStandardInput) {
  EXPECT_EQ(run({"security", "create-keychain", "k"}, "typed\n").status, 0);
  const Outcome forgotten = run({"security", "create-keychain", "forgotten"});
  EXPECT_EQ(forgotten.status, 1) << "nobody gave a password, not even an empty one";
  EXPECT_NE(forgotten.errorOutput.find("no password was given"), std::string::npos);
  const Outcome unchanged = run({"security", "set-keychain-password", "-o", "typed", "k"});
  EXPECT_EQ(unchanged.status, 1);
  EXPECT_EQ(run({"security", "unlock-keychain", "k"}, "typed\n").status, 0);
  EXPECT_EQ(run({"security", "unlock-keychain", "k"}, "other\n").status, 51);
}

}  // namespace
}  // namespace tovrek::test
