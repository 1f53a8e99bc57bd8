// Owners of OpenSSL's objects, and the conversions that come with every use of them.
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

#include "host/Freer.h"

namespace tovrek {

using AttributeOwner = std::unique_ptr<X509_ATTRIBUTE, Freer<X509_ATTRIBUTE_free>>;
using BioOwner = std::unique_ptr<BIO, Freer<BIO_free_all>>;
using CmsOwner = std::unique_ptr<CMS_ContentInfo, Freer<CMS_ContentInfo_free>>;
using EncryptedKeyOwner = std::unique_ptr<X509_SIG, Freer<X509_SIG_free>>;
using KeyInfoOwner = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Freer<PKCS8_PRIV_KEY_INFO_free>>;
using KeyOwner = std::unique_ptr<EVP_PKEY, Freer<EVP_PKEY_free>>;
using ObjectOwner = std::unique_ptr<ASN1_OBJECT, Freer<ASN1_OBJECT_free>>;
using Pkcs7Owner = std::unique_ptr<PKCS7, Freer<PKCS7_free>>;
using Pkcs12Owner = std::unique_ptr<PKCS12, Freer<PKCS12_free>>;
using StoreOwner = std::unique_ptr<X509_STORE, Freer<X509_STORE_free>>;
using X509Owner = std::unique_ptr<X509, Freer<X509_free>>;

// Lists, with what is in them.
struct ListFreer {
  void operator()(STACK_OF(X509) * list) const noexcept { sk_X509_pop_free(list, X509_free); }
  void operator()(STACK_OF(PKCS7) * list) const noexcept { sk_PKCS7_pop_free(list, PKCS7_free); }
  void operator()(STACK_OF(PKCS12_SAFEBAG) * list) const noexcept {
    sk_PKCS12_SAFEBAG_pop_free(list, PKCS12_SAFEBAG_free);
  }
};
using CertificateList = std::unique_ptr<STACK_OF(X509), ListFreer>;
using Pkcs7List = std::unique_ptr<STACK_OF(PKCS7), ListFreer>;
using SafeBagList = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG), ListFreer>;

// The memory must outlive the BIO.
inline BioOwner readingFrom(std::string_view bytes) {
  return BioOwner(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

// The same for CMS_verify: the library makes a copy of what it knows to be a memory BIO, and loses
// it where the message names a digest that it does not have.
inline BioOwner detachedContent(std::string_view bytes) {
  BioOwner memory = readingFrom(bytes);
  BioOwner filter(BIO_new(BIO_f_null()));
  if (!memory || !filter) return nullptr;
  BIO_push(filter.get(), memory.release());
  return filter;
}

// Everything written to a memory BIO.
inline std::string contentsOf(BIO* memory) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(memory, &data);
  return size > 0 ? std::string(data, static_cast<size_t>(size)) : std::string();
}

inline const unsigned char* asBytes(std::string_view text) {
  return static_cast<const unsigned char*>(static_cast<const void*>(text.data()));
}

// What OpenSSL's encoders give: calls i2d(&buffer) and takes the buffer over.
template <class Encode>
std::string encoded(Encode encode) {
  unsigned char* der = nullptr;
  const int length = encode(&der);
  if (length <= 0) return {};
  std::string bytes(der, der + length);
  OPENSSL_free(der);
  return bytes;
}

// The library's reason for its last failure; empties its queue.
inline std::string opensslReason() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  std::string text = reason == nullptr ? "unknown reason" : reason;
  ERR_clear_error();
  return text;
}

}  // namespace tovrek
