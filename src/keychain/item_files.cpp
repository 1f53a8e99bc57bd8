#include "keychain/item_files.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <climits>

#include "formats/openssl_owners.h"

namespace tovrek::keychain {

namespace {

// OpenSSL asks at the terminal when it is given no callback.
int givePassword(char* buffer, int size, int /*writing*/, void* context) {
  const auto* password = static_cast<const std::optional<std::string>*>(context);
  if (!*password || (*password)->size() > static_cast<size_t>(size)) return -1;
  std::copy_n((*password)->data(), (*password)->size(), buffer);  // OpenSSL takes the length
  return static_cast<int>((*password)->size());
}

void* contextOf(const std::optional<std::string>& password) {
  return const_cast<std::optional<std::string>*>(&password);
}

// One "-----BEGIN NAME-----" block.
struct PemBlock {
  std::string name, header, data;
};

bool nextBlock(BIO* from, PemBlock* block) {
  char* name = nullptr;
  char* header = nullptr;
  unsigned char* data = nullptr;
  long size = 0;
  if (PEM_read_bio(from, &name, &header, &data, &size) != 1) return false;
  *block = {name, header, std::string(data, data + size)};
  OPENSSL_free(name);
  OPENSSL_free(header);
  OPENSSL_cleanse(data, static_cast<size_t>(size));
  OPENSSL_free(data);
  return true;
}

bool addCertificate(std::string_view der, Items* items) {
  auto certificate = Certificate::fromDer(der);
  if (!certificate) return false;
  items->certificates.push_back(std::move(*certificate));
  return true;
}

bool addKey(EVP_PKEY* key, Items* items) {
  if (key == nullptr) return false;
  items->keys.emplace_back(key, EVP_PKEY_free);
  return true;
}

// PKCS#8 names the kind of its key, so that only the decoders of that kind are asked.
EVP_PKEY* plainKey(const PemBlock& block) {
  if (block.name != PEM_STRING_PKCS8INF || !block.header.empty()) return nullptr;
  const unsigned char* at = asBytes(block.data);
  const unsigned char* end = at + block.data.size();
  const KeyInfoOwner info(
      d2i_PKCS8_PRIV_KEY_INFO(nullptr, &at, static_cast<long>(block.data.size())));
  return info && at == end ? EVP_PKCS82PKEY(info.get()) : nullptr;
}

// Other blocks are written out again alone, because the reader of keys wants the PEM text.
bool addPemKey(const PemBlock& block, const std::optional<std::string>& password, Items* items) {
  if (addKey(plainKey(block), items)) return true;
  const BioOwner memory(BIO_new(BIO_s_mem()));
  PEM_write_bio(memory.get(), block.name.c_str(), block.header.c_str(), asBytes(block.data),
                static_cast<long>(block.data.size()));
  return addKey(PEM_read_bio_PrivateKey(memory.get(), nullptr, givePassword, contextOf(password)),
                items);
}

bool isEncrypted(const PemBlock& block) {
  return block.name == "ENCRYPTED PRIVATE KEY" ||
         block.header.find("ENCRYPTED") != std::string::npos;
}

ReadResult readPem(std::string_view bytes, const std::optional<std::string>& password,
                   Items* items) {
  const BioOwner from = readingFrom(bytes);
  PemBlock block;
  bool any = false;
  bool locked = false;
  while (nextBlock(from.get(), &block)) {
    if (block.name == "CERTIFICATE" || block.name == "X509 CERTIFICATE") {
      any |= addCertificate(block.data, items);
    } else if (block.name.ends_with("PRIVATE KEY")) {
      const bool added = addPemKey(block, password, items);
      any |= added;
      locked |= !added && isEncrypted(block);
    }
  }
  if (locked) return ReadResult::kWrongPassword;
  return any ? ReadResult::kRead : ReadResult::kUnknownFormat;
}

ReadResult readDerKey(std::string_view bytes, const std::optional<std::string>& password,
                      Items* items) {
  const unsigned char* at = asBytes(bytes);
  if (addKey(d2i_AutoPrivateKey(nullptr, &at, static_cast<long>(bytes.size())), items)) {
    return ReadResult::kRead;
  }
  const BioOwner encrypted = readingFrom(bytes);
  if (addKey(d2i_PKCS8PrivateKey_bio(encrypted.get(), nullptr, givePassword, contextOf(password)),
             items)) {
    return ReadResult::kRead;
  }
  at = asBytes(bytes);
  const EncryptedKeyOwner shape(d2i_X509_SIG(nullptr, &at, static_cast<long>(bytes.size())));
  return shape ? ReadResult::kWrongPassword : ReadResult::kUnknownFormat;
}

}  // namespace

ReadResult readItems(std::string_view bytes, const std::optional<std::string>& password,
                     Items* items) {
  if (bytes.empty() || bytes.size() > INT_MAX) return ReadResult::kUnknownFormat;
  ReadResult result = ReadResult::kRead;
  if (bytes.find("-----BEGIN ") != std::string_view::npos) {
    result = readPem(bytes, password, items);
  } else if (!addCertificate(bytes, items)) {
    result = readPkcs12(bytes, password, items);
    if (result == ReadResult::kUnknownFormat) result = readDerKey(bytes, password, items);
  }
  ERR_clear_error();
  return result;
}

}  // namespace tovrek::keychain
