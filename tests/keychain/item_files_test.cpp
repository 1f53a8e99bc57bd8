#include "keychain/item_files.h"

#include <gtest/gtest.h>
#include <openssl/pkcs12.h>

#include "formats/openssl_owners.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::keychain {
namespace {

using test::makeIdentity;
using test::makePkcs12;
using test::runOpenssl;

class ItemFiles : public testing::Test {
 protected:
  ReadResult read(const std::string& path, const std::optional<std::string>& password = {}) {
    items_ = {};
    return readItems(test::contentsOf(path), password, &items_);
  }
  // Whether exactly the identity's certificate and key were read.
  void expectIdentity() {
    ASSERT_EQ(items_.certificates.size(), 1u);
    ASSERT_EQ(items_.keys.size(), 1u);
    EXPECT_EQ(items_.certificates[0].der(), test::derOf(identity_.certificate));
    EXPECT_EQ(publicKeyId(items_.certificates[0]), publicKeyId(items_.keys[0]));
  }

  test::TemporaryFolder folder_;
  test::IdentityFiles identity_ = makeIdentity(folder_, "id");
  Items items_;
};

TEST_F(ItemFiles, SingleItemsInPemAndDer) {
  const std::string der = folder_.file("c.der");
  runOpenssl({"x509", "-in", identity_.certificate, "-outform", "DER", "-out", der});
  const std::string derKey = folder_.file("k.der");
  runOpenssl({"ec", "-in", identity_.key, "-outform", "DER", "-out", derKey});
  const std::string oldKey = folder_.file("old.pem");  // "EC PRIVATE KEY"
  runOpenssl({"ec", "-in", identity_.key, "-out", oldKey});
  const struct {
    std::string path;
    size_t certificates, keys;
  } cases[] = {
      {identity_.certificate, 1, 0},
      {der, 1, 0},
      {identity_.key, 0, 1},
      {derKey, 0, 1},
      {oldKey, 0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(read(c.path), ReadResult::kRead);
    EXPECT_EQ(items_.certificates.size(), c.certificates);
    EXPECT_EQ(items_.keys.size(), c.keys);
  }
}

TEST_F(ItemFiles, PemWithTextAroundIt) {
  const std::string both =
      folder_.write("both.pem", "Bag Attributes\n" + test::contentsOf(identity_.key) +
                                    "subject=X\n" + test::contentsOf(identity_.certificate));
  EXPECT_EQ(read(both), ReadResult::kRead);
  expectIdentity();
}

TEST_F(ItemFiles, EncryptedKeysNeedTheirPassword) {
  const std::string pem = folder_.file("locked.pem");
  runOpenssl({"pkcs8", "-topk8", "-in", identity_.key, "-out", pem, "-passout", "pass:pw"});
  const std::string old = folder_.file("oldlocked.pem");
  runOpenssl({"ec", "-in", identity_.key, "-out", old, "-aes128", "-passout", "pass:pw"});
  const std::string der = folder_.file("locked.der");
  runOpenssl({"pkcs8", "-topk8", "-in", identity_.key, "-out", der, "-outform", "DER", "-passout",
              "pass:pw"});
  for (const std::string& path : {pem, old, der}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(read(path), ReadResult::kWrongPassword);
    EXPECT_EQ(read(path, "no"), ReadResult::kWrongPassword);
    EXPECT_EQ(read(path, std::string(5000, 'x')), ReadResult::kWrongPassword);
    EXPECT_EQ(read(path, "pw"), ReadResult::kRead);
    EXPECT_EQ(items_.keys.size(), 1u);
  }
}

TEST_F(ItemFiles, Pkcs12InModernAndOldEncryption) {
  for (const auto& options : std::vector<std::vector<std::string>>{
           {},
           {"-legacy"},  // RC2 and triple DES, as Keychain Access writes
           {"-certpbe", "NONE", "-keypbe", "NONE"},
       }) {
    SCOPED_TRACE(testing::PrintToString(options));
    const std::string path = makePkcs12(folder_, "m", identity_, "pässword", options);
    EXPECT_EQ(read(path), ReadResult::kWrongPassword);
    EXPECT_EQ(read(path, "other"), ReadResult::kWrongPassword);
    EXPECT_EQ(read(path, "pässword"), ReadResult::kRead);
    expectIdentity();
  }
}

TEST_F(ItemFiles, Pkcs12WithoutPassword) {
  for (const std::string& path : {makePkcs12(folder_, "empty", identity_, ""),
                                  makePkcs12(folder_, "nomac", identity_, "", {"-nomac"})}) {
    EXPECT_EQ(read(path), ReadResult::kRead) << path;
    expectIdentity();
    EXPECT_EQ(read(path, ""), ReadResult::kRead) << path;
  }
}

// An export of several identities from a Mac puts them all into one file.
TEST_F(ItemFiles, Pkcs12WithTwoIdentities) {
  Items all;
  for (const auto& identity : {identity_, makeIdentity(folder_, "second")}) {
    readItems(test::contentsOf(identity.certificate), {}, &all);
    readItems(test::contentsOf(identity.key), {}, &all);
  }
  STACK_OF(PKCS12_SAFEBAG)* bags = nullptr;
  for (const Certificate& certificate : all.certificates) {
    const unsigned char* at = asBytes(certificate.der());
    const X509Owner x509(d2i_X509(nullptr, &at, static_cast<long>(certificate.der().size())));
    PKCS12_add_cert(&bags, x509.get());
  }
  for (const PrivateKey& key : all.keys) {
    PKCS12_add_key(&bags, key.get(), 0, 2048, NID_aes_256_cbc, "pw");
  }
  STACK_OF(PKCS7)* safes = nullptr;
  PKCS12_add_safe(&safes, bags, NID_aes_256_cbc, 2048, "pw");
  const Pkcs12Owner file(PKCS12_add_safes(safes, 0));
  PKCS12_set_mac(file.get(), "pw", -1, nullptr, 0, 2048, nullptr);
  const std::string der = encoded([&](unsigned char** out) { return i2d_PKCS12(file.get(), out); });
  sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
  sk_PKCS7_pop_free(safes, PKCS7_free);

  EXPECT_EQ(readItems(der, "pw", &items_), ReadResult::kRead);
  EXPECT_EQ(items_.certificates.size(), 2u);
  EXPECT_EQ(items_.keys.size(), 2u);
}

TEST_F(ItemFiles, DamagedFilesAreRefused) {
  EXPECT_EQ(readItems("", {}, &items_), ReadResult::kUnknownFormat);
  EXPECT_EQ(readItems("some text", {}, &items_), ReadResult::kUnknownFormat);
  EXPECT_EQ(
      readItems("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n", {}, &items_),
      ReadResult::kUnknownFormat);
  const std::string whole =
      test::contentsOf(makePkcs12(folder_, "m", identity_, "pw", {"-certpbe", "NONE"}));
  for (size_t size = 0; size < whole.size(); size += 11) {
    EXPECT_NE(readItems(whole.substr(0, size), "pw", &items_), ReadResult::kRead) << size;
  }
  for (size_t at = 0; at < whole.size(); at += 13) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
    readItems(damaged, "pw", &items_);  // any answer but a crash
  }
}

}  // namespace
}  // namespace tovrek::keychain
