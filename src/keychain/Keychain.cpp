#include "keychain/Keychain.h"

#include <fmt/format.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <set>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"
#include "host/files.h"
#include "host/paths.h"
#include "keychain/item_files.h"
#include "keychain/key_files.h"
#include "keychain/token_keys.h"
#include "keychain/unlocking.h"

namespace tovrek::keychain {

namespace {

// No certificate or key comes near this; larger files in a keychain's folder are something else.
constexpr uint64_t kLargestFile = 16 << 20;

// `passwords` are tried where none will not do.
ReadResult readUnlocked(std::string_view bytes, const std::vector<std::string>& passwords,
                        Items* items) {
  Items plain;
  ReadResult result = readItems(bytes, std::nullopt, &plain);
  for (const std::string& password : passwords) {
    if (result != ReadResult::kWrongPassword) break;
    plain = {};
    result = readItems(bytes, password, &plain);
  }
  std::ranges::move(plain.certificates, std::back_inserter(items->certificates));
  std::ranges::move(plain.keys, std::back_inserter(items->keys));
  return result;
}

std::vector<std::string> passwordsOfEnvironment() {
  const char* password = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
  if (password == nullptr) return {};
  return {password};
}

// The same item may lie in several files, as a .p12 and its certificate do.
Items withoutRepeats(Items items) {
  Items result;
  std::set<std::string> seen;
  for (auto& certificate : items.certificates) {
    if (seen.insert(certificate.der()).second)
      result.certificates.push_back(std::move(certificate));
  }
  for (auto& key : items.keys) {
    if (seen.insert(publicKeyId(key)).second) result.keys.push_back(std::move(key));
  }
  for (auto& key : items.tokenKeys) {
    if (seen.insert(key.id).second) result.tokenKeys.push_back(std::move(key));
  }
  return result;
}

bool readSingleFile(const std::string& path, Items* items, ErrorText* error) {
  std::string bytes;
  if (!readFile(path, &bytes, error)) return false;
  switch (readUnlocked(bytes, passwordsOfEnvironment(), items)) {
    case ReadResult::kRead:
      return true;
    case ReadResult::kWrongPassword:
      return fail(error,
                  std::getenv("TOVREK_KEYCHAIN_PASSWORD") == nullptr
                      ? "The file is encrypted; give its password in TOVREK_KEYCHAIN_PASSWORD."
                      : "The password in TOVREK_KEYCHAIN_PASSWORD is not that of the file.");
    case ReadResult::kUnsupported:
      return fail(error, "The file's encryption is not supported by this host's OpenSSL.");
    case ReadResult::kTooCostly:
      return fail(error, "The file asks for more than ten million rounds over its password.");
    case ReadResult::kUnknownFormat:
      break;
  }
  return fail(error, "The file holds neither a certificate nor a private key.");
}

// SHA-1 of the key's bits alone, so that differing parameters of the algorithm do not matter.
std::string idOfBits(std::string_view bits) {
  return hexLower(digestOf(DigestAlgorithm::kSha1, bits));
}

std::string idOfPublicKey(std::string_view der) {
  const unsigned char* at = asBytes(der);
  using Owner = std::unique_ptr<X509_PUBKEY, Freer<X509_PUBKEY_free>>;
  const Owner parsed(d2i_X509_PUBKEY(nullptr, &at, static_cast<long>(der.size())));
  const unsigned char* bits = nullptr;
  int size = 0;
  if (!parsed || X509_PUBKEY_get0_param(nullptr, &bits, &size, nullptr, parsed.get()) != 1) {
    ERR_clear_error();
    return {};
  }
  return idOfBits(std::string(bits, bits + size));
}

// DER of one number of an RSA key; empty when there is none of that name.
std::string integerOf(const EVP_PKEY* key, const char* name) {
  using Number = std::unique_ptr<BIGNUM, Freer<BN_free>>;
  using Integer = std::unique_ptr<ASN1_INTEGER, Freer<ASN1_INTEGER_free>>;
  BIGNUM* value = nullptr;
  EVP_PKEY_get_bn_param(key, name, &value);
  const Number owner(value);
  const Integer integer(value == nullptr ? nullptr : BN_to_ASN1_INTEGER(value, nullptr));
  if (!integer) return {};
  return encoded([&](unsigned char** der) { return i2d_ASN1_INTEGER(integer.get(), der); });
}

// RSAPublicKey (RFC 8017), which are the bits of an RSA key: far quicker than OpenSSL's encoders.
// Empty for keys of other kinds and those of an engine.
std::string rsaBits(const EVP_PKEY* key) {
  if (EVP_PKEY_get0_provider(key) == nullptr || EVP_PKEY_is_a(key, "RSA") != 1) return {};
  const std::string modulus = integerOf(key, OSSL_PKEY_PARAM_RSA_N);
  const std::string exponent = integerOf(key, OSSL_PKEY_PARAM_RSA_E);
  if (modulus.empty() || exponent.empty()) return {};
  const auto size = static_cast<int>(modulus.size() + exponent.size());
  const std::string header = encoded([&](unsigned char** der) {
    const int length = ASN1_object_size(1, size, V_ASN1_SEQUENCE) - size;
    *der = static_cast<unsigned char*>(OPENSSL_malloc(static_cast<size_t>(length)));
    unsigned char* at = *der;
    if (at == nullptr) return -1;
    ASN1_put_object(&at, 1, size, V_ASN1_SEQUENCE, V_ASN1_UNIVERSAL);
    return length;
  });
  return header + modulus + exponent;
}

}  // namespace

bool isKeychainFileName(const std::string& name) {
  static constexpr std::array<std::string_view, 7> kExtensions = {"pem", "p12", "pfx", "cer",
                                                                  "crt", "der", "key"};
  return std::ranges::find(kExtensions, toLowerAscii(pathExtension(name))) != kExtensions.end();
}

std::string publicKeyId(const Certificate& certificate) {
  const ASN1_BIT_STRING* bits = X509_get0_pubkey_bitstr(certificate.x509().get());
  if (bits == nullptr) return {};
  const unsigned char* data = ASN1_STRING_get0_data(bits);
  return idOfBits(std::string(data, data + ASN1_STRING_length(bits)));
}

std::string publicKeyId(const PrivateKey& key) {
  if (const std::string bits = rsaBits(key.get()); !bits.empty()) return idOfBits(bits);
  return idOfPublicKey(encoded([&](unsigned char** der) { return i2d_PUBKEY(key.get(), der); }));
}

bool Keychain::readFolder(ErrorText* error) {
  const auto names = listDirectory(path_, error);
  if (!names) return false;
  std::vector<std::string> passwords = passwordsOfEnvironment();
  if (auto unlocked = rememberedPassword(path_)) passwords.push_back(std::move(*unlocked));
  for (const std::string& name : *names) {
    const std::string file = joinPath(path_, name);
    if (!isKeychainFileName(name) || isDirectory(file)) continue;
    if (fileSize(file).value_or(0) > kLargestFile) continue;
    std::string bytes;
    if (ErrorText reason; !readFile(file, &bytes, &reason)) {
      unreadable_.push_back(fmt::format("{}: {}", file, reason.text()));
      continue;
    }
    if (canWait(name, bytes)) {
      deferred_.push_back({deletingPathExtension(name), file});
    } else if (const auto uri = tokenUriIn(bytes)) {
      // To learn whose key it is its token would have to be asked, and its module run.
      problems_.push_back(fmt::format(
          "{}: names a key on a token; security import it once, and remove the file.", file));
    } else if (readUnlocked(bytes, passwords, &items_) == ReadResult::kWrongPassword) {
      problems_.push_back(fmt::format("{}: its password is not known.", file));
    }
  }
  return true;
}

std::optional<Keychain> Keychain::open(const std::string& path, ErrorText* error) {
  Keychain keychain;
  keychain.path_ = path;
  const bool read = isDirectory(path) ? keychain.readFolder(error)
                                      : readSingleFile(path, &keychain.items_, error);
  if (!read) return std::nullopt;
  keychain.items_ = withoutRepeats(std::move(keychain.items_));
  return keychain;
}

Keychain Keychain::unreadableAt(const std::string& path, std::string_view reason) {
  Keychain keychain;
  keychain.path_ = path;
  keychain.unreadable_.push_back(fmt::format("{}: {}", path, reason));
  return keychain;
}

bool Keychain::holdsKey(const std::string& id) const {
  const auto isIt = [&](const PrivateKey& mine) { return publicKeyId(mine) == id; };
  return std::ranges::find(deferred_, id, &DeferredKey::id) != deferred_.end() ||
         std::ranges::any_of(items_.keys, isIt);
}

std::vector<Identity> Keychain::identities() const {
  std::map<std::string, PrivateKey> keys;
  for (const PrivateKey& key : items_.keys) keys.emplace(publicKeyId(key), key);
  std::vector<Identity> result;
  for (const Certificate& certificate : items_.certificates) {
    const std::string id = publicKeyId(certificate);
    if (id.empty()) continue;
    const auto later = std::ranges::find(deferred_, id, &DeferredKey::id);
    if (const auto key = keys.find(id); key != keys.end()) {
      result.push_back({certificate, key->second, {}});
    } else if (later != deferred_.end()) {
      result.push_back({certificate, nullptr, {}, *later});
    }
  }
  return result;
}

// Tells the digests of the keys that were not there.
bool Keychain::addKeys(const Items& items, std::vector<std::string>* newKeys, Added* counts,
                       ErrorText* error) {
  for (const PrivateKey& key : items.keys) {
    const std::string id = publicKeyId(key);
    if (holdsKey(id)) {
      ++counts->duplicates;
      continue;
    }
    if (!writeKeyFile(path_, key, error)) return false;
    newKeys->push_back(id);
    items_.keys.push_back(key);
  }
  for (const TokenKey& key : items.tokenKeys) {
    if (holdsKey(key.id)) {
      ++counts->duplicates;
      continue;
    }
    const std::string file = joinPath(path_, key.id + ".key");
    // A URI may hold a PIN.
    if (!writeSecret(file, key.uri + "\n", error)) return false;
    newKeys->push_back(key.id);
    deferred_.push_back({key.id, file});
  }
  return true;
}

bool Keychain::add(const Items& added, Added* counts, ErrorText* error) {
  *counts = {};
  if (!isDirectory(path_)) return fail(error, "The keychain is a single file.");
  const Items items = withoutRepeats(added);
  std::set<std::string> givenKeys;
  for (const PrivateKey& key : items.keys) givenKeys.insert(publicKeyId(key));
  for (const TokenKey& key : items.tokenKeys) givenKeys.insert(key.id);
  std::vector<std::string> newKeys;
  if (!addKeys(items, &newKeys, counts, error)) return false;
  const auto isNew = [&](const std::string& id) {
    return std::ranges::find(newKeys, id) != newKeys.end();
  };

  std::set<std::string> pairedKeys;
  for (const Certificate& certificate : items.certificates) {
    const bool known = std::ranges::any_of(items_.certificates, [&](const Certificate& mine) {
      return mine.der() == certificate.der();
    });
    const std::string id = publicKeyId(certificate);
    const bool paired = givenKeys.contains(id);
    if (paired) pairedKeys.insert(id);
    if (known) {
      ++counts->duplicates;
    } else {
      if (!writeSecret(joinPath(path_, certificate.sha1Hex() + ".cer"), certificate.der(), error)) {
        return false;
      }
      items_.certificates.push_back(certificate);
    }
    if (paired && (!known || isNew(id))) {
      ++counts->identities;
    } else if (!known) {
      ++counts->certificates;
    }
  }
  for (const std::string& id : newKeys) counts->keys += pairedKeys.contains(id) ? 0 : 1;
  return true;
}

}  // namespace tovrek::keychain
