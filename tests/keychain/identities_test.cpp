#include "keychain/identities.h"

#include <gtest/gtest.h>

#include "tests/support/matchers.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::keychain {
namespace {

using test::IdentityFiles;
using test::IdentityRequest;
using test::makeIdentity;

class Identities : public testing::Test {
 protected:
  // Puts the identity's files into the keychain folder `keychain`.
  void store(const std::string& keychain, const std::string& name, const IdentityFiles& files,
             bool withKey = true) {
    folder_.write(keychain + "/" + name + ".pem", test::contentsOf(files.certificate));
    if (withKey) folder_.write(keychain + "/" + name + ".key", test::contentsOf(files.key));
  }
  IdentityFiles make(const std::string& name, const std::string& subject, int days = 30,
                     const char* usage = "codeSigning") {
    IdentityRequest request;
    request.subject = subject;
    request.days = days;
    request.extensions = std::string("extendedKeyUsage=") + usage + "\n";
    return makeIdentity(folder_, name, request);
  }
  Keychain open(const std::string& name) {
    auto keychain = Keychain::open(folder_.file(name));
    EXPECT_TRUE(keychain);
    return keychain.value_or(Keychain());
  }

  test::TemporaryFolder folder_;
};

TEST_F(Identities, ChosenByWhatTheUserWrote) {
  const auto acme = make("acme", "/CN=iPhone Distribution: Acme");
  store("kc", "acme", acme);
  store("kc", "acme2", make("acme2", "/CN=iPhone Distribution: Acme Two"));
  store("kc", "beta", make("beta", "/CN=Beta"));
  store("kc", "old", make("old", "/CN=Beta", -1));  // a renewal keeps the name
  store("kc", "gone", make("gone", "/CN=Gone Corp", -1));
  store("kc", "web", make("web", "/CN=Web Server", 30, "serverAuth"));
  store("kc", "lost", make("lost", "/CN=Lost Key"), false);
  store("second", "acme", acme);
  const std::vector<Keychain> keychains = {open("kc"), open("second")};
  const std::string digest = Certificate::fromDer(test::derOf(acme.certificate))->sha1Hex();
  std::string upper = digest;
  for (char& c : upper) c = static_cast<char>(std::toupper(c));

  const struct {
    std::string name;
    Lookup outcome;
    std::string expected;  // the leaf's name, or the text after "NAME: "
  } cases[] = {
      {"iPhone Distribution: Acme", Lookup::kFound, "iPhone Distribution: Acme"},
      {"acme two", Lookup::kFound, "iPhone Distribution: Acme Two"},
      {digest, Lookup::kFound, "iPhone Distribution: Acme"},
      {upper, Lookup::kFound, "iPhone Distribution: Acme"},
      {"*", Lookup::kFound, "iPhone Distribution: Acme"},
      {"Beta", Lookup::kFound, "Beta"},
      {"iphone distribution", Lookup::kAmbiguous,
       "ambiguous (matches \"iPhone Distribution: Acme\" and \"iPhone Distribution: Acme Two\" "
       "in " +
           folder_.file("kc") + ")"},
      {"Nobody", Lookup::kNotFound, "no identity found"},
      {"", Lookup::kNotFound, "no identity found"},
      {std::string(40, 'a'), Lookup::kNotFound, "no identity found"},
      {"Lost", Lookup::kNoPrivateKey, "no identity found"},
      {"Gone", Lookup::kExpired, "this identity cannot be used for signing code"},
      {"Web", Lookup::kNotForSigning, "this identity cannot be used for signing code"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const LookupResult result = findSigningIdentity(keychains, c.name);
    EXPECT_EQ(result.outcome, c.outcome);
    if (c.outcome == Lookup::kFound) {
      ASSERT_TRUE(result.identity);
      EXPECT_EQ(result.identity->leaf.commonName(), c.expected);
      EXPECT_TRUE(isValidNow(result.identity->leaf));
      EXPECT_EQ(publicKeyId(result.identity->leaf), publicKeyId(result.identity->key));
    } else {
      EXPECT_FALSE(result.identity);
      EXPECT_EQ(result.text, c.name + ": " + c.expected);
    }
  }
  EXPECT_THAT(findSigningIdentity(keychains, "Lost").detail, HasSubstr("private key is not"));
  EXPECT_THAT(findSigningIdentity(keychains, "Gone").detail, HasSubstr("valid from"));
  EXPECT_THAT(findSigningIdentity(keychains, "Web").detail, HasSubstr("not meant"));
}

TEST_F(Identities, NothingToChooseFrom) {
  for (const char* name : {"*", "x"}) {
    EXPECT_EQ(findSigningIdentity({}, name).outcome, Lookup::kNotFound);
  }
}

TEST_F(Identities, ExactNameThatCannotSignIsNotReplacedByALongerOne) {
  store("kc", "a", make("a", "/CN=Acme", -1));
  store("kc", "b", make("b", "/CN=Acme Two"));
  EXPECT_EQ(findSigningIdentity({open("kc")}, "Acme").outcome, Lookup::kExpired);
}

// Two generations of an intermediate share a name; only the right one belongs into the chain.
TEST_F(Identities, ChainFollowsTheIssuersKey) {
  const std::string authority =
      "basicConstraints=critical,CA:TRUE\nsubjectKeyIdentifier=hash\n"
      "authorityKeyIdentifier=keyid\n";
  const auto issue = [&](const std::string& name, const std::string& subject,
                         const IdentityFiles* issuer, const std::string& extensions) {
    IdentityRequest request;
    request.subject = subject;
    request.issuer = issuer;
    request.extensions = extensions;
    return makeIdentity(folder_, name, request);
  };
  const auto root = issue("root", "/CN=Root", nullptr, authority);
  const auto first = issue("g1", "/CN=Intermediate", &root, authority);
  const auto second = issue("g2", "/CN=Intermediate", &root, authority);
  const auto leaf = issue("leaf", "/CN=Leaf", &second, "authorityKeyIdentifier=keyid\n");
  const auto bare = issue("bare", "/CN=Bare", &second, "authorityKeyIdentifier=none\n");

  ASSERT_EQ(Certificate::fromDer(test::derOf(bare.certificate))->authorityKeyIdentifier(), "");

  store("issuers", "g1", first, false);
  store("issuers", "g2", second, false);
  store("kc", "leaf", leaf);
  store("kc", "bare", bare);
  const auto chainOf = [](const std::vector<Keychain>& keychains, const char* name) {
    std::vector<std::string> ders;
    const LookupResult found = findSigningIdentity(keychains, name);
    if (!found.identity) return ders;
    for (const Certificate& each : found.identity->chain) ders.push_back(each.der());
    return ders;
  };
  // Without its root the chain is open, and nothing is signed.
  const LookupResult withoutRoot = findSigningIdentity({open("kc"), open("issuers")}, "Leaf");
  EXPECT_EQ(withoutRoot.outcome, Lookup::kNoChain);
  EXPECT_THAT(withoutRoot.detail, HasSubstr("no certificate of its issuer is in the keychains"));
  EXPECT_THAT(withoutRoot.detail, HasSubstr("CN = Root"));

  store("issuers", "root", root, false);
  const std::vector<std::string> whole = {test::derOf(second.certificate),
                                          test::derOf(root.certificate)};
  const std::vector<Keychain> keychains = {open("kc"), open("issuers")};
  EXPECT_EQ(chainOf(keychains, "Leaf"), whole);
  // Without key identifiers the signature tells the two apart.
  EXPECT_EQ(chainOf(keychains, "Bare"), whole);
  EXPECT_TRUE(completeChain({}, open("kc").certificates()[0]).empty());
  EXPECT_TRUE(
      completeChain(keychains, *Certificate::fromDer(test::derOf(root.certificate))).empty());
}

// A leaf alone signs with the issuers that the host knows; of two generations with one key the
// expired one is passed over, and is an error where there is no other.
TEST_F(Identities, HostCompletesTheChain) {
  const std::string authority =
      "basicConstraints=critical,CA:TRUE\nsubjectKeyIdentifier=hash\n"
      "authorityKeyIdentifier=keyid\n";
  const auto issue = [&](const std::string& name, const std::string& subject,
                         const IdentityFiles* issuer, int days, const std::string& key) {
    IdentityRequest request;
    request.subject = subject;
    request.issuer = issuer;
    request.extensions = authority;
    request.days = days;
    request.existingKey = key;
    return makeIdentity(folder_, name, request);
  };
  const auto root = issue("root", "/CN=Root", nullptr, 90, "");
  const auto current = issue("current", "/CN=Intermediate", &root, 60, "");
  const auto expired = issue("expired", "/CN=Intermediate", &root, -1, current.key);
  const auto leaf = issue("leaf", "/CN=Leaf", &current, 30, "");
  const std::string system = "root/System/Library/Keychains/SystemRootCertificates.keychain";
  store(system, "root", root, false);
  store("kc", "leaf", leaf);
  store("kc", "expired", expired, false);
  const test::ScopedEnvironment host("TOVREK_HOST_ROOT", folder_.file("root"));
  const test::ScopedEnvironment config("XDG_CONFIG_HOME", folder_.file("config"));

  const LookupResult refused = findSigningIdentity({open("kc")}, "Leaf");
  EXPECT_EQ(refused.outcome, Lookup::kNoChain);
  EXPECT_THAT(refused.detail, HasSubstr("that are there have expired"));

  store(system, "current", current, false);
  const LookupResult found = findSigningIdentity({open("kc")}, "Leaf");
  ASSERT_TRUE(found.identity) << found.detail;
  ASSERT_EQ(found.identity->chain.size(), 2U);
  EXPECT_EQ(found.identity->chain[0].der(), test::derOf(current.certificate));
  EXPECT_EQ(found.identity->chain[1].der(), test::derOf(root.certificate));
}

}  // namespace
}  // namespace tovrek::keychain
