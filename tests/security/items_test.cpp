// Commands of `security` that hand items out, delete them or judge them.
#include <sys/stat.h>

#include "formats/Certificate.h"
#include "host/files.h"
#include "programs/security/interactive.h"
#include "tests/security/SecurityTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using security::wordsOf;
using Words = std::vector<std::string>;

// Two identities "One" and "Two" and the certificate "Root" that issued the first.
class SecurityItems : public SecurityTest {
 protected:
  SecurityItems() {
    EXPECT_EQ(run({"security", "create-keychain", "-p", "pw", "kc"}).status, 0);
    for (const IdentityFiles& each : {one_, two_}) {
      EXPECT_EQ(
          run({"security", "import", makePkcs12(folder_, "m", each, "x"), "-k", "kc", "-P", "x"})
              .output,
          "1 identity imported.\n");
    }
    expectRun({"security", "add-certificates", "-k", "kc", root_.certificate}, 0, "");
    expectRun({"security", "list-keychains", "-s", "kc"}, 0, "");
  }
  IdentityFiles issue(const std::string& name, const IdentityFiles* issuer,
                      const std::string& extensions, int days = 30) {
    IdentityRequest request;
    request.subject = "/CN=" + name + "/O=Test/emailAddress=" + name + "@example.com";
    request.issuer = issuer;
    request.days = days;
    request.extensions = extensions;
    return makeIdentity(folder_, name, request);
  }
  size_t countOf(const std::string& text, const std::string& part) const {
    size_t count = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
    return count;
  }

  IdentityFiles root_ = issue("Root", nullptr, "basicConstraints=critical,CA:TRUE\n");
  IdentityFiles one_ = issue("One", &root_,
                             "extendedKeyUsage=codeSigning\nsubjectKeyIdentifier=hash\n"
                             "1.2.840.113635.100.6.1.4=critical,DER:0500\n");
  IdentityFiles two_ = issue("Two", nullptr, "extendedKeyUsage=serverAuth\n");
};

TEST_F(SecurityItems, ExportsWhatOpensslReads) {
  const struct {
    Words words;
    Words openssl;  // the reader; it gets "-in" and the file
    size_t certificates, keys;
  } cases[] = {
      {{"-t", "identities", "-f", "pkcs12"}, {"pkcs12", "-nodes", "-passin", "pass:pw"}, 2, 2},
      {{}, {"pkcs12", "-nodes", "-passin", "pass:pw"}, 3, 2},
      {{"-t", "privKeys"}, {"pkcs12", "-nodes", "-passin", "pass:pw"}, 0, 2},
      {{"-t", "certs", "-f", "pkcs12"}, {"pkcs12", "-passin", "pass:pw"}, 3, 0},
      {{"-t", "certs", "-f", "pkcs7"}, {"pkcs7", "-inform", "DER", "-print_certs"}, 3, 0},
      {{"-t", "certs", "-f", "pkcs7", "-p"}, {"pkcs7", "-print_certs"}, 3, 0},
      {{"-t", "certs"}, {"storeutl", "-certs"}, 3, 0},
      {{"-f", "pemseq"}, {"storeutl", "-passin", "pass:pw"}, 3, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const std::string file = folder_.file("exported");
    Words words = {"security", "export", "-k", "kc", "-P", "pw", "-o", file};
    words.insert(words.end(), c.words.begin(), c.words.end());
    // Only passwords for keys are needed; that of a bundle of certificates is empty.
    expectRun(words, 0, "");
    Words reader = c.openssl;
    if (c.keys == 0 && reader.back() == "pass:pw") reader.back() = "pass:";
    if (reader.front() == "storeutl") {
      reader.push_back(file);
    } else {
      reader.insert(reader.end(), {"-in", file});
    }
    const std::string shown = runOpenssl(reader);
    EXPECT_EQ(countOf(shown, "-BEGIN CERTIFICATE-"), c.certificates);
    EXPECT_EQ(countOf(shown, "-BEGIN PRIVATE KEY-"), c.keys);
    EXPECT_EQ(contentsOf(file).find("-BEGIN PRIVATE KEY-"), std::string::npos);
  }
  expectRun({"security", "create-keychain", "-p", "", "copy"}, 0, "");
  expectRun({"security", "export", "-k", "kc", "-P", "pw", "-o", "all.p12"}, 0, "");
  expectRun({"security", "import", "all.p12", "-k", "copy", "-P", "pw"}, 0,
            "2 identities imported.\n1 certificate imported.\n");
  const Outcome forgotten = run({"security", "export", "-k", "kc", "-f", "pemseq"});
  EXPECT_EQ(forgotten.status, 1) << "nobody gave a password, not even an empty one";
  EXPECT_EQ(forgotten.output, "");
  for (const char* format : {"x509", "pkcs7", "pkcs8"}) {
    expectRun({"security", "export", "-P", "x", "-f", format}, 44, "",
              "security: SecItemExport: The specified item could not be found in the "
              "keychain.\n");
    EXPECT_EQ(run({"security", "export", "-k", "kc", "-P", "x", "-f", format}).status, 1);
  }
}

TEST_F(SecurityItems, DeletesExactlyOneItem) {
  const std::string sha1 = upperDigest(two_);
  const std::string sha256 = hexUpper(digestOf(DigestAlgorithm::kSha256, derOf(root_.certificate)));
  const auto missing = [](const std::string& kind, const std::string& name) {
    return "security: Unable to delete " + kind + " matching \"" + name + "\"\n";
  };
  expectRun({"security", "create-keychain", "-p", "", "second"}, 0, "");
  expectRun({"security", "add-certificates", "-k", "second", one_.certificate}, 0, "");
  expectRun({"security", "list-keychains", "-s", "kc", "second"}, 0, "");
  const struct {
    Words words;
    int status;
    std::string errorOutput;
    size_t certificates, identities;  // left in kc
  } cases[] = {
      {{"delete-certificate", "-c", "On"}, 1, missing("certificate", "On"), 3, 2},
      {{"delete-certificate", "-c", "One"},
       1,
       "security: \"One\" is ambiguous, matches more than one certificate\n",
       3,
       2},
      {{"delete-identity", "-c", "Root"}, 1, missing("identity", "Root"), 3, 2},
      {{"delete-identity", "-c", "one", "-t", "nowhere.keychain"},
       50,
       "security: SecKeychainOpen: The specified keychain could not be found.\n",
       3,
       2},
      {{"delete-identity", "-c", "one"}, 0, "", 2, 1},  // the other keychain has no key
      {{"delete-certificate", "-Z", sha1, "kc"}, 0, "", 1, 0},
      {{"delete-certificate", "-Z", sha1, "kc"}, 1, missing("certificate", sha1), 1, 0},
      {{"delete-certificate", "-t", "-Z", sha256}, 0, "", 0, 0},
  };
  for (const auto& c : cases) {
    Words words = {"security"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    expectRun(words, c.status, "", c.errorOutput);
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(countOf(run({"security", "find-certificate", "-a", "-p", "kc"}).output, "-BEGIN"),
              c.certificates);
    EXPECT_THAT(run({"security", "find-identity", "-v", "kc"}).output,
                HasSubstr(std::to_string(c.identities) + " valid identities"));
  }
  // Only the key of "Two" is left.
  EXPECT_EQ(countOf(run({"security", "dump-keychain", "kc"}).output, "class: "), 1u);
}

TEST_F(SecurityItems, DumpsCertificatesAndKeys) {
  const std::string text = run({"security", "dump-keychain", "-a", "kc"}).output;
  EXPECT_EQ(countOf(text, "class: 0x80001000 \n"), 3u);
  EXPECT_EQ(countOf(text, "class: 0x00000010 \n"), 2u);
  EXPECT_EQ(countOf(text, "    0x00000001 <blob>=\"Two\"\n"), 1u);
  EXPECT_EQ(text.find("PRIVATE"), std::string::npos);
}

TEST_F(SecurityItems, VerifiesChains) {
  const IdentityFiles old = issue("Old", &root_, "extendedKeyUsage=codeSigning\n", -1);
  const std::string otherRoot = issue("Other", nullptr, "basicConstraints=CA:TRUE\n").certificate;
  const struct {
    Words words;
    std::string problem;
  } cases[] = {
      {{"-c", one_.certificate}, ""},
      {{"-c", one_.certificate, "-p", "codeSign", "-r", root_.certificate}, ""},
      {{"-c", one_.certificate, "-c", root_.certificate, "-r", otherRoot}, "NOT_TRUSTED"},
      {{"-c", old.certificate}, "CERT_EXPIRED"},
      {{"-c", two_.certificate, "-p", "ssl"}, ""},
      {{"-c", two_.certificate, "-p", "codeSign"}, "VERIFY_ACTION_FAILED"},
      {{"-c", otherRoot}, "NOT_TRUSTED"},
      {{"-c", otherRoot, "-r", otherRoot}, ""},
  };
  for (const auto& c : cases) {
    Words words = {"security", "verify-cert"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    if (c.problem.empty()) {
      expectRun(words, 0, "...certificate verification successful.\n");
    } else {
      expectRun(words, 1, "", "Cert Verify Result: CSSMERR_TP_" + c.problem + "\n");
    }
    words.push_back("-q");
    expectRun(words, c.problem.empty() ? 0 : 1, "");
  }
  expectRun({"security", "verify-cert", "-c", one_.key}, 1, "",
            "security: Error reading file " + one_.key + ": no certificate in it\n");
  expectRun({"security", "verify-cert", "-c", "/nowhere"}, 1, "",
            "security: Error reading file /nowhere: No such file or directory\n");
}

// The keychain of a Mac's administrator stands for the user's own one.
TEST_F(SecurityItems, AddsTrustedCertificates) {
  for (int i = 0; i < 2; ++i) {  // a second time is no failure
    expectRun({"security", "add-trusted-cert", "-d", "-r", "trustRoot", "-p", "codeSign", "-k",
               "/Library/Keychains/System.keychain", root_.certificate},
              0, "");
  }
  EXPECT_TRUE(isDirectory(dataFolder() + "/keychain"));
  expectRun({"security", "add-certificates", root_.certificate}, 45, "",
            "security: SecCertificateAddToKeychain: The specified item already exists in the "
            "keychain.\n");
  expectRun({"security", "login-keychain"}, 0, "    \"" + dataFolder() + "/keychain\"\n");
}

TEST_F(SecurityItems, SignsMessages) {
  const std::string text = folder_.write("text", std::string("a\r\n\0b", 5));
  const std::string id =
      hexUpper(Certificate::fromDer(derOf(one_.certificate))->subjectKeyIdentifier());
  const struct {
    Words words;
    bool detached;
    std::string digest;
  } cases[] = {
      {{"-N", "One"}, false, "sha256"},
      {{"-N", "one", "-T", "-G"}, true, "sha256"},
      {{"-Z", id, "-H", "SHA384", "-k", "kc"}, false, "sha384"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    Words words = {"security", "cms", "-S", "-i", text, "-o", folder_.file("m")};
    words.insert(words.end(), c.words.begin(), c.words.end());
    expectRun(words, 0, "");
    Words verify = {"cms", "-verify",         "-binary", "-inform",         "DER",
                    "-in", folder_.file("m"), "-CAfile", root_.certificate, "-purpose",
                    "any", "-ignore_critical"};
    if (c.detached) verify.insert(verify.end(), {"-content", text});
    EXPECT_EQ(runOpenssl(verify), contentsOf(text));
    EXPECT_THAT(
        runOpenssl({"cms", "-cmsout", "-print", "-inform", "DER", "-in", folder_.file("m")}),
        HasSubstr("algorithm: " + c.digest + " "));
    expectRun({"security", "cms", "-D", "-i", folder_.file("m")}, 0,
              c.detached ? "" : contentsOf(text));
  }
  expectRun({"security", "cms", "-S", "-N", "Nobody", "-i", text}, 1, "",
            "security: no identity \"Nobody\" to sign with\nsecurity: problem signing\n");
  expectRun({"security", "cms", "-S", "-N", "One", "-H", "sha0", "-i", text}, 1, "",
            "security: failed to sign with \"One\": unknown digest sha0\nsecurity: problem "
            "signing\n");
}

// A script that sets TOVREK_ENCRYPT_KEYCHAINS changes nothing else.
TEST_F(SecurityItems, EncryptedKeychainInABuildServersScript) {
  const ScopedEnvironment encrypt("TOVREK_ENCRYPT_KEYCHAINS", "1");
  const std::string p12 = makePkcs12(folder_, "m", one_, "x");
  expectRun({"security", "create-keychain", "-p", "pw", "build.keychain"}, 0, "");
  expectRun({"security", "set-keychain-settings", "-lut", "21600", "build.keychain"}, 0, "");
  expectRun({"security", "unlock-keychain", "-p", "pw", "build.keychain"}, 0, "");
  expectRun({"security", "import", p12, "-k", "build.keychain", "-P", "x", "-A"}, 0,
            "1 identity imported.\n");
  const Words sign = {"security", "cms", "-S", "-N", "One", "-T", "-k", "build.keychain"};
  EXPECT_EQ(run(sign, "text").status, 0);
  expectRun({"security", "set-keychain-password", "-o", "pw", "-p", "new", "build.keychain"}, 0,
            "");
  EXPECT_EQ(run(sign, "text").status, 0);
  expectRun({"security", "lock-keychain", "-a"}, 0, "");
  EXPECT_THAT(run(sign, "text").errorOutput, HasSubstr("build.keychain is locked"));
  EXPECT_THAT(run({"security", "find-identity", "-v", "build.keychain"}).output,
              HasSubstr("1 valid identities found"));
  expectRun({"security", "import", two_.key, "-k", "build.keychain"}, 36, "",
            "security: SecKeychainItemImport: User interaction is not allowed.\n"
            "security: " +
                dataFolder() + "/build.keychain is locked: security unlock-keychain\n");
  expectRun({"security", "unlock-keychain", "-p", "pw", "build.keychain"}, 51, "",
            "security: SecKeychainUnlock build.keychain: The user name or passphrase you entered "
            "is not correct.\n");
  expectRun({"security", "unlock-keychain", "-p", "new", "build.keychain"}, 0, "");
  expectRun({"security", "import", two_.key, "-k", "build.keychain"}, 0, "1 key imported.\n");
  expectRun({"security", "set-keychain-password", "-o", "no", "-p", "x", "build.keychain"}, 51, "",
            "security: SecKeychainChangePassword: The user name or passphrase you entered is not "
            "correct.\n");
  expectRun({"security", "delete-keychain", "build.keychain"}, 0, "");
}

TEST_F(SecurityItems, CommandsFromStandardInput) {
  const Outcome outcome = run({"security", "-i"},
                              "# a comment\n\ncreate-keychain -p 'p w' \"my kc\"\nnonsense\n"
                              "unlock-keychain -p p\\ w 'my kc'\r\ndelete-keychain \"my kc\n"
                              "list-keychains\nquit\nnonsense\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "    \"" + dataFolder() + "/kc.keychain\"\n");
  EXPECT_EQ(outcome.errorOutput,
            "security: unknown command \"nonsense\"\nsecurity: a quote is not closed\n");
  EXPECT_TRUE(isDirectory(dataFolder() + "/my kc.keychain"));
  EXPECT_EQ(run({"security", "-q", "-i"}, "list-keychains\ndelete-keychain none").status, 50);

  EXPECT_EQ(wordsOf(R"(a 'b \' "" "\"c\\")"), (Words{"a", "b \\", "", "\"c\\"}));
}

// A passphrase need not stand on the command line, and exported keys are their owner's alone.
TEST_F(SecurityTest, PassphrasesFromElsewhereAndModesOfExports) {
  const IdentityFiles id = makeNamed("id", "Acme");
  const std::string p12 = makePkcs12(folder_, "dist", id, "p12pw");
  const std::string file = folder_.write("pw", "p12pw\nrest\n");
  expectRun({"security", "import", p12, "-P", "file:" + folder_.file("none")}, 1, "",
            "security: Error reading passphrase from " + folder_.file("none") +
                ": No such file or directory\n");
  EXPECT_EQ(run({"security", "import", p12}).status, 1);
  expectRun({"security", "import", p12, "-P", "file:" + file}, 0, "1 identity imported.\n");
  removeItem(dataFolder() + "/keychain");
  const ScopedEnvironment password("TOVREK_KEYCHAIN_PASSWORD", "p12pw");
  expectRun({"security", "import", p12}, 0, "1 identity imported.\n");

  const std::string out = folder_.write("out.p12", "open to all");
  ASSERT_EQ(::chmod(out.c_str(), 0666), 0);
  expectRun({"security", "export", "-P", "x", "-o", out}, 0, "");
  EXPECT_EQ(fileMode(out), 0600U);
}

}  // namespace
}  // namespace tovrek::test
