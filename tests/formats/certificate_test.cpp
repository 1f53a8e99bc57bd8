#include "formats/Certificate.h"

#include <gtest/gtest.h>

#include "host/clock.h"
#include "tests/support/openssl_identity.h"

namespace tovrek {
namespace {

using test::IdentityRequest;

// A certificate whose names are stored in one kind of string: an OpenSSL string mask.
std::string derWithStrings(const test::TemporaryFolder& folder, const std::string& subject,
                           const std::string& mask) {
  const std::string settings = folder.write(
      "req.cnf", "[req]\ndistinguished_name=dn\nstring_mask=MASK:" + mask + "\n[dn]\n");
  return test::runOpenssl({"req", "-x509", "-utf8", "-config", settings, "-newkey", "ec",
                           "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout",
                           folder.file("k.pem"), "-outform", "DER", "-subj", subject});
}

TEST(Certificate, NamesFromEveryKindOfString) {
  const char* const kUtf8 = "0x2000";
  const char* const kBmp = "0x0800";
  const char* const kTeletex = "0x0004";
  const struct {
    const char *subject, *mask;
    const char* commonName;  // null: none
    const char* unit;
    const char* label;
  } cases[] = {
      {"/CN=Plain/OU=TEAM", kUtf8, "Plain", "TEAM", "Plain"},
      {"/CN=Zürich 漢字/OU=Büro", kUtf8, "Zürich 漢字", "Büro", "Zürich 漢字"},
      {"/CN=Zürich 漢字/OU=Büro", kBmp, "Zürich 漢字", "Büro", "Zürich 漢字"},
      {"/CN=Zürich", kTeletex, "Zürich", nullptr, "Zürich"},
      {"/CN=First/CN=Second/OU=One/OU=Two", kUtf8, "First", "One", "First"},
      {"/O=Org/OU=Unit", kUtf8, nullptr, "Unit", "Unit"},
      {"/C=US/O=Org", kUtf8, nullptr, nullptr, "Org"},
      {"/emailAddress=a@b.c", kUtf8, nullptr, nullptr, "a@b.c"},
      {"/C=US", kUtf8, nullptr, nullptr, ""},
  };
  const test::TemporaryFolder folder;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.subject);
    const auto certificate = Certificate::fromDer(derWithStrings(folder, c.subject, c.mask));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->commonName().value_or("(none)"), c.commonName ? c.commonName : "(none)");
    EXPECT_EQ(certificate->organizationalUnit().value_or("(none)"), c.unit ? c.unit : "(none)");
    EXPECT_EQ(certificate->inferredLabel(), c.label);
  }
}

TEST(Certificate, ReadsNothingButOneWholeCertificate) {
  const test::TemporaryFolder folder;
  const std::string der = test::derOf(test::makeIdentity(folder, "a").certificate);
  EXPECT_TRUE(Certificate::fromDer(der));
  EXPECT_FALSE(Certificate::fromDer(""));
  EXPECT_FALSE(Certificate::fromDer("garbage"));
  EXPECT_FALSE(Certificate::fromDer(der + "x"));
  for (size_t size = 1; size < der.size(); size += 7) {
    EXPECT_FALSE(Certificate::fromDer(der.substr(0, size))) << size;
  }
}

TEST(Certificate, ValidityAndDigestAsOpensslGivesThem) {
  const test::TemporaryFolder folder;
  IdentityRequest request;
  request.days = 40000;  // beyond 2050, where the encoding of times changes
  const auto files = test::makeIdentity(folder, "a", request);
  const auto certificate = Certificate::fromDer(test::derOf(files.certificate));
  ASSERT_TRUE(certificate);
  EXPECT_NEAR(certificate->notBefore(), currentTime(), 300);
  EXPECT_NEAR(certificate->notAfter() - certificate->notBefore(), 40000 * 86400.0, 1);

  std::string printed =
      test::runOpenssl({"x509", "-in", files.certificate, "-noout", "-fingerprint", "-sha1"});
  std::string digits;
  for (const char c : printed.substr(printed.find('=') + 1)) {
    if (c != ':' && c != '\n') digits += static_cast<char>(std::tolower(c));
  }
  EXPECT_EQ(certificate->sha1Hex(), digits);
}

TEST(Certificate, KeyUsageDecidesAboutSigningCode) {
  const struct {
    const char* extensions;
    bool allowed;
  } cases[] = {
      {"subjectKeyIdentifier=hash\n", true},
      {"extendedKeyUsage=codeSigning\n", true},
      {"extendedKeyUsage=clientAuth,codeSigning\n", true},
      {"extendedKeyUsage=anyExtendedKeyUsage\n", true},
      {"extendedKeyUsage=critical,serverAuth\n", false},
      {"extendedKeyUsage=DER:05:00\n", false},  // damaged
  };
  const test::TemporaryFolder folder;
  for (const auto& c : cases) {
    IdentityRequest request;
    request.extensions = c.extensions;
    const auto certificate =
        Certificate::fromDer(test::derOf(test::makeIdentity(folder, "a", request).certificate));
    ASSERT_TRUE(certificate);
    EXPECT_EQ(certificate->allowsCodeSigning(), c.allowed) << c.extensions;
  }
}

TEST(Certificate, KeyIdentifiersLinkIssuerAndIssued) {
  const test::TemporaryFolder folder;
  const auto root = test::makeIdentity(folder, "root");
  IdentityRequest request;
  request.issuer = &root;
  request.subject = "/CN=Leaf";
  request.extensions = "authorityKeyIdentifier=keyid\nsubjectKeyIdentifier=none\n";
  const auto files = test::makeIdentity(folder, "leaf", request);
  const auto issuer = Certificate::fromDer(test::derOf(root.certificate));
  const auto leaf = Certificate::fromDer(test::derOf(files.certificate));
  ASSERT_TRUE(issuer && leaf);
  EXPECT_TRUE(issuer->isSelfIssued());
  EXPECT_FALSE(leaf->isSelfIssued());
  EXPECT_EQ(leaf->issuerDer(), issuer->subjectDer());
  EXPECT_EQ(leaf->authorityKeyIdentifier(), issuer->subjectKeyIdentifier());
  EXPECT_EQ(leaf->subjectKeyIdentifier(), "");
  EXPECT_EQ(issuer->subjectKeyIdentifier().size(), 20u);
}

}  // namespace
}  // namespace tovrek
