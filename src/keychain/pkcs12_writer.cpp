// PKCS#12 with any number of identities, as an export of a whole keychain needs.
#include <openssl/err.h>
#include <openssl/pkcs12.h>

#include "formats/openssl_owners.h"
#include "keychain/item_files.h"
#include "keychain/token_keys.h"

namespace tovrek::keychain {

namespace {

constexpr int kContainerRounds = 100000;

// A key and its certificate carry one identifier, by which readers pair them.
bool addIdentifier(PKCS12_SAFEBAG* bag, const std::string& id) {
  std::string copy = id;
  unsigned char* bytes = static_cast<unsigned char*>(static_cast<void*>(copy.data()));
  return bag != nullptr && PKCS12_add_localkeyid(bag, bytes, static_cast<int>(copy.size())) == 1;
}

bool addCertificate(STACK_OF(PKCS12_SAFEBAG) * bags, const Certificate& certificate) {
  PKCS12_SAFEBAG* bag = PKCS12_add_cert(&bags, certificate.x509().get());
  return addIdentifier(bag, publicKeyId(certificate)) &&
         PKCS12_add_friendlyname_utf8(bag, certificate.inferredLabel().c_str(), -1) == 1;
}

bool addKey(STACK_OF(PKCS12_SAFEBAG) * bags, const PrivateKey& key, const std::string& password) {
  return !isOnToken(key) && addIdentifier(PKCS12_add_key(&bags, key.get(), 0, kContainerRounds,
                                                         NID_aes_256_cbc, password.c_str()),
                                          publicKeyId(key));
}

}  // namespace

std::string writePkcs12(const Items& items, const std::string& password) {
  const SafeBagList certificates(sk_PKCS12_SAFEBAG_new_null());
  const SafeBagList keys(sk_PKCS12_SAFEBAG_new_null());
  const Pkcs7List safes(sk_PKCS7_new_null());
  bool good = certificates && keys && safes;
  for (const Certificate& each : items.certificates) {
    good = good && addCertificate(certificates.get(), each);
  }
  for (const PrivateKey& key : items.keys) good = good && addKey(keys.get(), key, password);
  STACK_OF(PKCS7)* all = safes.get();
  if (good && !items.certificates.empty()) {
    good = PKCS12_add_safe(&all, certificates.get(), NID_aes_256_cbc, kContainerRounds,
                           password.c_str()) == 1;
  }
  // The keys are encrypted one by one.
  if (good && !items.keys.empty()) {
    good = PKCS12_add_safe(&all, keys.get(), -1, 0, nullptr) == 1;
  }
  const Pkcs12Owner file(good && sk_PKCS7_num(all) > 0 ? PKCS12_add_safes(all, 0) : nullptr);
  std::string der;
  if (file && PKCS12_set_mac(file.get(), password.c_str(), -1, nullptr, 0, kContainerRounds,
                             EVP_sha256()) == 1) {
    der = encoded([&](unsigned char** out) { return i2d_PKCS12(file.get(), out); });
  }
  ERR_clear_error();
  return der;
}

}  // namespace tovrek::keychain
