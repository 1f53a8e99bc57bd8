// PKCS#12 with any number of identities, as an export of a whole keychain needs.
#include <openssl/err.h>
#include <openssl/pkcs12.h>

#include "formats/openssl_owners.h"
#include "keychain/item_files.h"
#include "keychain/token_keys.h"

namespace tovrek::keychain {

namespace {

constexpr int kRounds = 100000;

struct Bags {
  STACK_OF(PKCS12_SAFEBAG) * bags = nullptr;
  ~Bags() { sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free); }
};
struct Safes {
  STACK_OF(PKCS7) * safes = nullptr;
  ~Safes() { sk_PKCS7_pop_free(safes, PKCS7_free); }
};

// A key and its certificate carry one identifier, by which readers pair them.
bool addIdentifier(PKCS12_SAFEBAG* bag, const std::string& id) {
  std::string copy = id;
  unsigned char* bytes = static_cast<unsigned char*>(static_cast<void*>(copy.data()));
  return bag != nullptr && PKCS12_add_localkeyid(bag, bytes, static_cast<int>(copy.size())) == 1;
}

bool addCertificate(Bags* to, const Certificate& certificate) {
  const unsigned char* at = asBytes(certificate.der());
  const X509Owner x509(d2i_X509(nullptr, &at, static_cast<long>(certificate.der().size())));
  PKCS12_SAFEBAG* bag = x509 ? PKCS12_add_cert(&to->bags, x509.get()) : nullptr;
  return addIdentifier(bag, publicKeyId(certificate)) &&
         PKCS12_add_friendlyname_utf8(bag, certificate.inferredLabel().c_str(), -1) == 1;
}

}  // namespace

std::string writePkcs12(const Items& items, const std::string& password) {
  Bags certificates, keys;
  Safes safes;
  bool good = true;
  for (const Certificate& each : items.certificates) good &= addCertificate(&certificates, each);
  for (const PrivateKey& key : items.keys) {
    good = good && !isOnToken(key) &&
           addIdentifier(
               PKCS12_add_key(&keys.bags, key.get(), 0, kRounds, NID_aes_256_cbc, password.c_str()),
               publicKeyId(key));
  }
  if (good && certificates.bags != nullptr) {
    good = PKCS12_add_safe(&safes.safes, certificates.bags, NID_aes_256_cbc, kRounds,
                           password.c_str()) == 1;
  }
  // The keys are encrypted one by one.
  if (good && keys.bags != nullptr) {
    good = PKCS12_add_safe(&safes.safes, keys.bags, -1, 0, nullptr) == 1;
  }
  const Pkcs12Owner file(good && safes.safes != nullptr ? PKCS12_add_safes(safes.safes, 0)
                                                        : nullptr);
  std::string der;
  if (file &&
      PKCS12_set_mac(file.get(), password.c_str(), -1, nullptr, 0, kRounds, EVP_sha256()) == 1) {
    der = encoded([&](unsigned char** out) { return i2d_PKCS12(file.get(), out); });
  }
  ERR_clear_error();
  return der;
}

}  // namespace tovrek::keychain
