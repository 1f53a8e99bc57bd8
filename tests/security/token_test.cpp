// Keys on a token, through the programs that use them.

#include "formats/Certificate.h"
#include "host/files.h"
#include "tests/security/SecurityTest.h"
#include "tests/support/SignableImage.h"
#include "tests/support/SoftToken.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

class TokenTest : public SecurityTest {
 protected:
  TokenTest() { token_.add(id_.key, "signer"); }
  std::string keychain() const { return dataFolder() + "/keychain"; }
  // The one key file in the keychain.
  std::string keyFile() const {
    const auto names = listDirectory(keychain());
    for (const std::string& name : names.value_or(std::vector<std::string>())) {
      if (name.ends_with(".key")) return keychain() + "/" + name;
    }
    return "";
  }
  Outcome sign() {
    const std::string file = folder_.write("App", image_);
    return run({"codesign", "-f", "-s", "Acme", file});
  }

  SoftToken token_{folder_};
  ScopedEnvironment pin_{"TOVREK_PKCS11_PIN", ""};
  ScopedEnvironment module_{"TOVREK_PKCS11_MODULE", ""};
  IdentityFiles id_ = makeNamed("id", "Acme");
  std::string image_ = buildUniversal({SignableImage::armv7(), SignableImage()});
  const std::string key_ = "token=build;object=signer";
};

TEST_F(TokenTest, KeysAreFoundByUriModuleAndPin) {
  const std::string pinFile = folder_.write("pin", "1234\n");
  const struct {
    std::string uri, pinOfEnvironment, moduleOfEnvironment;
    std::string problem;  // empty: the key is found
  } cases[] = {
      {SoftToken::uri(key_, "pin-value=1234"), "", "", ""},
      {SoftToken::uri(key_ + ";type=private", "pin-value=12%334"), "", "", ""},
      {SoftToken::uri(key_, "pin-source=" + pinFile), "", "", ""},
      {SoftToken::uri(key_, "pin-source=file://" + pinFile), "9", "", ""},
      {"pkcs11:token=build;pin-value=1234;object=signer", "", SoftToken::kModule, ""},
      {SoftToken::uri(key_), "1234", "", ""},
      {"pkcs11:" + key_, "1234", SoftToken::kModule, ""},
      {SoftToken::uri("id=%01", "pin-value=1234"), "", "/nowhere.so", ""},
      {SoftToken::uri(key_), "", "", "or it needs a PIN: give that by pin-value"},
      {SoftToken::uri(key_, "pin-value=999"), "", "", "PIN incorrect"},
      {SoftToken::uri(key_, "pin-source=/no/pin"), "1234", "", "read the PIN from \"/no/pin\": No"},
      {SoftToken::uri("token=other;object=signer", "pin-value=1234"), "", "", "no such token, or"},
      {SoftToken::uri("token=build;object=other", "pin-value=1234"), "", "", "no such token, or"},
      {"pkcs11:token=other;pin-value=1234", "", SoftToken::kModule, "pkcs11:token=other: no such"},
      {SoftToken::uri("nonsense", "pin-value=1234"), "", "", "this is not a PKCS#11 URI"},
      {"pkcs11:" + key_, "1234", "/no/module.so", "module \"/no/module.so\" does not exist"},
      {"pkcs11:" + key_, "1234", id_.key, "cannot be loaded"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    const ScopedEnvironment pin("TOVREK_PKCS11_PIN", c.pinOfEnvironment);
    const ScopedEnvironment module("TOVREK_PKCS11_MODULE", c.moduleOfEnvironment);
    const Outcome outcome = run({"security", "import", c.uri});
    EXPECT_EQ(outcome.output, c.problem.empty() ? "1 key imported.\n" : "");
    EXPECT_EQ(outcome.status, c.problem.empty() ? 0 : 1);
    EXPECT_THAT(outcome.errorOutput, HasSubstr(c.problem));
    EXPECT_THAT(outcome.errorOutput, testing::Not(HasSubstr("1234")));
    if (c.problem.empty()) {
      EXPECT_EQ(fileMode(keyFile()), 0600u);
      EXPECT_THAT(contentsOf(keyFile()), testing::Not(HasSubstr("module-path")));
      removeItem(keychain());
    } else {
      EXPECT_THAT(outcome.errorOutput, HasSubstr("security: SecKeychainItemImport: pkcs11:"));
      EXPECT_EQ(keyFile(), "");
    }
  }
  const ScopedEnvironment engines("OPENSSL_ENGINES", folder_.path());
  EXPECT_THAT(run({"security", "import", cases[0].uri}).errorOutput,
              HasSubstr("Debian package libengine-pkcs11-openssl"));
}

TEST_F(TokenTest, SignsCodeAndMessages) {
  const std::string rsa = folder_.file("rsa.key");
  runOpenssl({"genrsa", "-out", rsa, "2048"});
  token_.add(rsa, "rsa");
  for (const auto& [key, label] : {std::pair(id_.key, "signer"), std::pair(rsa, "rsa")}) {
    SCOPED_TRACE(label);
    IdentityRequest request;
    request.subject = "/CN=Acme/OU=TEAM123456/O=Test";
    request.existingKey = key;
    const IdentityFiles files = makeIdentity(folder_, "with-" + std::string(label), request);
    const std::string uri =
        SoftToken::uri("token=build;object=" + std::string(label), "pin-value=1234");
    const ScopedEnvironment module("TOVREK_PKCS11_MODULE", SoftToken::kModule);
    EXPECT_THAT(run({"security", "import", folder_.write("uri", uri + "\r\n")}).errorOutput,
                HasSubstr("a file may not name the module"));
    expectRun({"security", "import", uri}, 0, "1 key imported.\n");
    expectRun({"security", "import", uri}, 45, "",
              "security: SecKeychainItemImport: The specified item already exists in the "
              "keychain.\n");
    expectRun({"security", "import", files.certificate}, 0, "1 certificate imported.\n");
    EXPECT_THAT(run({"security", "find-identity", "-v"}).output, HasSubstr("1) "));

    const Outcome signing = sign();
    EXPECT_EQ(signing.status, 0) << signing.errorOutput;
    EXPECT_EQ(run({"codesign", "--verify", "--strict", folder_.file("App")}).status, 0);
    EXPECT_EQ(run({"security", "cms", "-S", "-N", "Acme", "-o", folder_.file("m")}, "text").status,
              0);
    EXPECT_EQ(runOpenssl({"cms", "-verify", "-binary", "-inform", "DER", "-in", folder_.file("m"),
                          "-CAfile", files.certificate, "-purpose", "any"}),
              "text");
    expectRun({"security", "export", "-P", "x"}, 1, "",
              "security: SecItemExport: A key on a token cannot be exported.\n");
    removeItem(keychain());
  }
}

// A file named by a digest is asked for its key when that signs, one put there by hand never.
TEST_F(TokenTest, KeyFilesThatDoNotLeadToTheKey) {
  const ScopedEnvironment module("TOVREK_PKCS11_MODULE", SoftToken::kModule);
  ASSERT_EQ(run({"security", "import", SoftToken::uri(key_, "pin-value=1234")}).status, 0);
  ASSERT_EQ(run({"security", "import", id_.certificate}).status, 0);
  const IdentityFiles other = makeNamed("other", "Other");
  token_.add(other.key, "other");
  const std::string digestName = keyFile();
  const std::string plainName = keychain() + "/mine.key";
  const std::string wrongPin = SoftToken::uri(key_, "pin-value=0");
  const struct {
    std::string file, uri, text;
  } cases[] = {
      {digestName, "pkcs11:" + key_ + "?pin-value=0",
       "Acme: errSecInternalComponent (pkcs11:" + key_ + ": PIN incorrect)"},
      {digestName, "pkcs11:object=other?pin-value=1234",
       digestName + ": holds the key of another certificate"},
      {plainName, wrongPin,
       "Acme: no identity found (The certificate \"Acme\" is in " + keychain() +
           ", but its private key is not. " + plainName +
           ": names a key on a token; security import it once, and remove the file.)"},
      {digestName, SoftToken::uri(key_, "pin-value=1234"), "a file may not name the module"},
      {digestName, "pkcs11:" + key_ + "?pin-value=1234", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.uri);
    removeItem(keyFile());
    folder_.write(c.file.substr(folder_.path().size() + 1), c.uri);
    const Outcome outcome = sign();
    EXPECT_EQ(outcome.status, c.text.empty() ? 0 : 1);
    EXPECT_THAT(outcome.errorOutput, HasSubstr(c.text));
    EXPECT_EQ(contentsOf(folder_.file("App")) == image_, !c.text.empty());
  }
}

}  // namespace
}  // namespace tovrek::test
