#include "companions/keychain/Keychain.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>

#include "companions/keychain/item_files.h"
#include "formats/Digest.h"
#include "formats/openssl_owners.h"
#include "host/file_io.h"
#include "host/files.h"
#include "host/paths.h"

namespace tovrek::keychain {

namespace {

// No certificate or key comes near this; larger files in a keychain's folder are something else.
constexpr uint64_t kLargestFile = 16 << 20;

std::optional<std::string> passwordOfEnvironment() {
  const char* password = std::getenv("TOVREK_KEYCHAIN_PASSWORD");
  return password == nullptr ? std::nullopt : std::optional<std::string>(password);
}

ReadResult readUnlocked(std::string_view bytes, Items* items) {
  Items plain;
  ReadResult result = readItems(bytes, std::nullopt, &plain);
  if (result == ReadResult::kWrongPassword) {
    if (const auto password = passwordOfEnvironment()) {
      plain = {};
      result = readItems(bytes, password, &plain);
    }
  }
  std::ranges::move(plain.certificates, std::back_inserter(items->certificates));
  std::ranges::move(plain.keys, std::back_inserter(items->keys));
  return result;
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
  return result;
}

bool readSingleFile(const std::string& path, Items* items, ErrorText* error) {
  std::string bytes;
  if (!readFile(path, &bytes, error)) return false;
  switch (readUnlocked(bytes, items)) {
    case ReadResult::kRead:
      return true;
    case ReadResult::kWrongPassword:
      return fail(error, "The file is encrypted; give its password in TOVREK_KEYCHAIN_PASSWORD.");
    case ReadResult::kUnsupported:
      return fail(error, "The file's encryption is not supported by this host's OpenSSL.");
    case ReadResult::kUnknownFormat:
      break;
  }
  return fail(error, "The file holds neither a certificate nor a private key.");
}

bool readFolder(const std::string& path, Items* items, ErrorText* error) {
  const auto names = listDirectory(path, error);
  if (!names) return false;
  for (const std::string& name : *names) {
    const std::string file = joinPath(path, name);
    std::string bytes;
    if (!isKeychainFileName(name) || fileSize(file).value_or(kLargestFile + 1) > kLargestFile ||
        !isPlainFile(file) || !readFile(file, &bytes)) {
      continue;
    }
    readUnlocked(bytes, items);
  }
  return true;
}

// SHA-1 of the key's bits alone, so that differing parameters of the algorithm do not matter.
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
  return hexLower(
      digestOf(DigestAlgorithm::kSha1, std::as_bytes(std::span(bits, static_cast<size_t>(size)))));
}

std::string pemOf(EVP_PKEY* key) {
  const BioOwner memory(BIO_new(BIO_s_mem()));
  PEM_write_bio_PKCS8PrivateKey(memory.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
  return contentsOf(memory.get());
}

// Readable by the owner alone from its first byte on.
bool writeSecret(const std::string& path, std::string_view contents, ErrorText* error) {
  std::string temporary;
  UniqueFd fd = createTemporaryBeside(path, &temporary);
  if (!fd.valid()) return failWithErrno(error);
  const bool written = writeAll(fd.get(), contents) && ::fsync(fd.get()) == 0 && fd.close() &&
                       ::rename(temporary.c_str(), path.c_str()) == 0;
  if (written) return true;
  failWithErrno(error);
  ::unlink(temporary.c_str());
  return false;
}

}  // namespace

bool isKeychainFileName(const std::string& name) {
  static constexpr std::array<std::string_view, 7> kExtensions = {"pem", "p12", "pfx", "cer",
                                                                  "crt", "der", "key"};
  return std::ranges::find(kExtensions, toLowerAscii(pathExtension(name))) != kExtensions.end();
}

std::string publicKeyId(const Certificate& certificate) {
  return idOfPublicKey(certificate.publicKeyDer());
}

std::string publicKeyId(const PrivateKey& key) {
  return idOfPublicKey(encoded([&](unsigned char** der) { return i2d_PUBKEY(key.get(), der); }));
}

std::optional<Keychain> Keychain::open(const std::string& path, ErrorText* error) {
  Items items;
  const bool read =
      isDirectory(path) ? readFolder(path, &items, error) : readSingleFile(path, &items, error);
  if (!read) return std::nullopt;
  Keychain keychain;
  keychain.path_ = path;
  keychain.items_ = withoutRepeats(std::move(items));
  return keychain;
}

std::vector<Identity> Keychain::identities() const {
  std::vector<Identity> result;
  for (const Certificate& certificate : items_.certificates) {
    const std::string id = publicKeyId(certificate);
    const auto key = std::ranges::find_if(
        items_.keys, [&](const PrivateKey& candidate) { return publicKeyId(candidate) == id; });
    if (!id.empty() && key != items_.keys.end()) result.push_back({certificate, *key, {}});
  }
  return result;
}

bool Keychain::add(const Items& added, Added* counts, ErrorText* error) {
  *counts = {};
  if (!isDirectory(path_)) return fail(error, "The keychain is a single file.");
  std::set<std::string> newKeys, givenKeys;
  const Items items = withoutRepeats(added);

  for (const PrivateKey& key : items.keys) {
    const std::string id = publicKeyId(key);
    givenKeys.insert(id);
    const bool known = std::ranges::any_of(
        items_.keys, [&](const PrivateKey& mine) { return publicKeyId(mine) == id; });
    if (known) {
      ++counts->duplicates;
      continue;
    }
    const std::string pem = pemOf(key.get());
    if (pem.empty()) return fail(error, "The private key cannot be stored.");
    if (!writeSecret(joinPath(path_, id + ".key"), pem, error)) return false;
    newKeys.insert(id);
    items_.keys.push_back(key);
  }

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
      if (!writeFileAtomically(joinPath(path_, certificate.sha1Hex() + ".cer"), certificate.der(),
                               error)) {
        return false;
      }
      items_.certificates.push_back(certificate);
    }
    if (paired && (!known || newKeys.contains(id))) {
      ++counts->identities;
    } else if (!known) {
      ++counts->certificates;
    }
  }
  for (const std::string& id : newKeys) counts->keys += pairedKeys.contains(id) ? 0 : 1;
  return true;
}

}  // namespace tovrek::keychain
