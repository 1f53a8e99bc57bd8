// Owners for OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace tovrek::signing {

template <auto Free>
struct Freer {
  template <class T>
  void operator()(T* object) const noexcept {
    Free(object);
  }
};
using X509Owner = std::unique_ptr<X509, Freer<X509_free>>;
using CmsOwner = std::unique_ptr<CMS_ContentInfo, Freer<CMS_ContentInfo_free>>;
using BioOwner = std::unique_ptr<BIO, Freer<BIO_free>>;
using ObjectOwner = std::unique_ptr<ASN1_OBJECT, Freer<ASN1_OBJECT_free>>;
using AttributeOwner = std::unique_ptr<X509_ATTRIBUTE, Freer<X509_ATTRIBUTE_free>>;
using StoreOwner = std::unique_ptr<X509_STORE, Freer<X509_STORE_free>>;
struct CertificateListFreer {
  void operator()(STACK_OF(X509) * list) const noexcept { sk_X509_pop_free(list, X509_free); }
};
using CertificateList = std::unique_ptr<STACK_OF(X509), CertificateListFreer>;

// The library's reason for its last failure; empties its queue.
inline std::string opensslReason() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  std::string text = reason == nullptr ? "unknown reason" : reason;
  ERR_clear_error();
  return text;
}

}  // namespace tovrek::signing
