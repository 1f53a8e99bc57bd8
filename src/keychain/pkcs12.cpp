// PKCS#12 by its bags rather than with PKCS12_parse(), which returns a single key: files that
// were exported from a Mac often hold several identities.
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <climits>

#include "formats/openssl_owners.h"
#include "host/limits.h"
#include "keychain/item_files.h"

namespace tovrek::keychain {

namespace {

// Keychain Access and older OpenSSL encrypt certificates with 40-bit RC2, which OpenSSL 3 keeps
// in a provider that is not loaded by itself. Without it modern files can still be read.
// It stays loaded until the program ends.
void allowLegacyCiphers() {
  static const std::unique_ptr<OSSL_PROVIDER, Freer<OSSL_PROVIDER_unload>> kLegacy(
      OSSL_PROVIDER_try_load(nullptr, "legacy", 1));
}

// Reads bags with one password into the items; `complete` turns false when one cannot be read.
class BagReader {
 public:
  BagReader(const char* password, Items* items)
      : password_(password),
        length_(password == nullptr ? 0
                                    : static_cast<int>(std::char_traits<char>::length(password))),
        items_(items) {}

  bool complete() const { return complete_; }

  void readSafe(PKCS7* safe) {
    SafeBagList bags;
    if (PKCS7_type_is_data(safe)) {
      bags.reset(PKCS12_unpack_p7data(safe));
    } else if (PKCS7_type_is_encrypted(safe)) {
      bags.reset(PKCS12_unpack_p7encdata(safe, password_, length_));
    }
    if (bags) {
      readBags(bags.get(), 0);
    } else {
      complete_ = false;
    }
  }

 private:
  // Bags may hold bags; nobody nests them deeper than this.
  static constexpr int kDeepest = 8;

  void readBags(const STACK_OF(PKCS12_SAFEBAG) * bags, int depth) {
    for (int i = 0; depth < kDeepest && i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
      const PKCS12_SAFEBAG* bag = sk_PKCS12_SAFEBAG_value(bags, i);
      switch (PKCS12_SAFEBAG_get_nid(bag)) {
        case NID_keyBag:
          addKey(PKCS12_SAFEBAG_get0_p8inf(bag));
          break;
        case NID_pkcs8ShroudedKeyBag:
          addKey(KeyInfoOwner(PKCS12_decrypt_skey(bag, password_, length_)).get());
          break;
        case NID_certBag:
          if (PKCS12_SAFEBAG_get_bag_nid(bag) == NID_x509Certificate) {
            addCertificate(X509Owner(PKCS12_SAFEBAG_get1_cert(bag)));
          }
          break;
        case NID_safeContentsBag:
          readBags(PKCS12_SAFEBAG_get0_safes(bag), depth + 1);
          break;
        default:
          break;  // revocation lists and secrets are of no use here
      }
    }
  }

  void addKey(const PKCS8_PRIV_KEY_INFO* info) {
    PrivateKey key(info == nullptr ? nullptr : EVP_PKCS82PKEY(info), EVP_PKEY_free);
    if (key) {
      items_->keys.push_back(std::move(key));
    } else {
      complete_ = false;
    }
  }

  void addCertificate(X509Owner x509) {
    if (x509) {
      items_->certificates.push_back(Certificate::of(std::move(x509)));
    } else {
      complete_ = false;
    }
  }

  const char* password_;
  int length_;
  Items* items_;
  bool complete_ = true;
};

// Too many keep a processor busy for hours before the password is even known to be wrong.
bool isMacAffordable(const PKCS12* file) {
  const ASN1_INTEGER* rounds = nullptr;
  PKCS12_get0_mac(nullptr, nullptr, nullptr, &rounds, file);
  int64_t count = 1;
  return rounds == nullptr || (ASN1_INTEGER_get_int64(&count, rounds) == 1 && count >= 0 &&
                               static_cast<uint64_t>(count) <= limitsInForce().keyRounds);
}

bool fits(PKCS12* file, const char* password) {
  return PKCS12_verify_mac(file, password, password == nullptr ? 0 : -1) == 1;
}

// The password to read with. "No password" is written in two ways: as none and as an empty one.
struct Choice {
  bool found = false;
  const char* password = nullptr;
};
Choice choosePassword(PKCS12* file, const std::optional<std::string>& password) {
  const bool guarded = PKCS12_mac_present(file) == 1;
  if (password && !password->empty()) {
    return {!guarded || fits(file, password->c_str()), password->c_str()};
  }
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    if (!guarded || fits(file, none)) return {true, none};
  }
  return {};
}

}  // namespace

ReadResult readPkcs12(std::string_view bytes, const std::optional<std::string>& password,
                      Items* items) {
  const unsigned char* at = asBytes(bytes);
  const Pkcs12Owner file(bytes.size() > LONG_MAX
                             ? nullptr
                             : d2i_PKCS12(nullptr, &at, static_cast<long>(bytes.size())));
  if (!file) {
    ERR_clear_error();
    return ReadResult::kUnknownFormat;
  }
  if (!isMacAffordable(file.get())) {
    ERR_clear_error();
    return ReadResult::kTooCostly;
  }
  allowLegacyCiphers();
  const Choice choice = choosePassword(file.get(), password);
  if (!choice.found) {
    ERR_clear_error();
    return ReadResult::kWrongPassword;
  }
  const Pkcs7List safes(PKCS12_unpack_authsafes(file.get()));
  if (!safes) {
    ERR_clear_error();
    return ReadResult::kUnsupported;
  }
  BagReader reader(choice.password, items);
  for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
    reader.readSafe(sk_PKCS7_value(safes.get(), i));
  }
  ERR_clear_error();
  return reader.complete() ? ReadResult::kRead : ReadResult::kUnsupported;
}

}  // namespace tovrek::keychain
