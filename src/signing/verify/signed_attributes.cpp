#include "signing/verify/signed_attributes.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <optional>
#include <string>

#include "formats/openssl_owners.h"
#include "signing/ber_element.h"

namespace tovrek::signing {
namespace {

// The contents of the next element, where it is of that kind.
std::optional<std::string_view> enter(std::string_view* rest, int tag,
                                      int kind = V_ASN1_UNIVERSAL) {
  const auto element = takeElement(rest);
  if (!element || element->tag != tag || element->kind != kind) return std::nullopt;
  return element->contents;
}

// The attributes of the first signer, without tag and length.
std::optional<std::string_view> attributesIn(std::string_view message) {
  auto info = enter(&message, V_ASN1_SEQUENCE);
  if (!info || !takeElement(&*info)) return std::nullopt;  // behind the type
  auto content = enter(&*info, 0, V_ASN1_CONTEXT_SPECIFIC);
  auto parts = content ? enter(&*content, V_ASN1_SEQUENCE) : std::nullopt;
  if (!parts) return std::nullopt;
  std::optional<BerElement> signers;
  while (const auto part = takeElement(&*parts)) signers = part;
  if (!signers || signers->tag != V_ASN1_SET) return std::nullopt;
  auto signer = enter(&signers->contents, V_ASN1_SEQUENCE);
  // Version, name and digest stand before the attributes.
  for (int i = 0; i < 3; ++i) {
    if (!signer || !takeElement(&*signer)) return std::nullopt;
  }
  const auto attributes = takeElement(&*signer);
  const bool found = attributes && attributes->isDefinite && attributes->tag == 0 &&
                     attributes->kind == V_ASN1_CONTEXT_SPECIFIC;
  return found ? std::optional(attributes->contents) : std::nullopt;
}

// What is hashed is the set itself and not its place in the message.
std::string asSet(std::string_view attributes) {
  return encoded([&](unsigned char** der) {
    const auto size = static_cast<int>(attributes.size());
    const int total = ASN1_object_size(1, size, V_ASN1_SET);
    *der = static_cast<unsigned char*>(OPENSSL_malloc(static_cast<size_t>(total)));
    unsigned char* at = *der;
    if (at == nullptr) return -1;
    ASN1_put_object(&at, 1, size, V_ASN1_SET, V_ASN1_UNIVERSAL);
    std::copy(attributes.begin(), attributes.end(), at);
    return total;
  });
}

bool saysPlainData(const CMS_SignerInfo* signer) {
  // The only value of the only such attribute.
  constexpr int kAlone = -3;
  const void* type = CMS_signed_get0_data_by_OBJ(signer, OBJ_nid2obj(NID_pkcs9_contentType), kAlone,
                                                 V_ASN1_OBJECT);
  return type != nullptr && OBJ_obj2nid(static_cast<const ASN1_OBJECT*>(type)) == NID_pkcs7_data;
}

bool isSigned(CMS_SignerInfo* signer, std::string_view bytes) {
  using ContextOwner = std::unique_ptr<EVP_MD_CTX, Freer<EVP_MD_CTX_free>>;
  X509* certificate = nullptr;
  X509_ALGOR* algorithm = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, &algorithm, nullptr);
  EVP_PKEY* key = certificate == nullptr ? nullptr : X509_get0_pubkey(certificate);
  const EVP_MD* digest = algorithm == nullptr ? nullptr : EVP_get_digestbyobj(algorithm->algorithm);
  const ASN1_OCTET_STRING* signature = CMS_SignerInfo_get0_signature(signer);
  const ContextOwner context(EVP_MD_CTX_new());
  return key != nullptr && digest != nullptr && signature != nullptr && context &&
         EVP_DigestVerifyInit(context.get(), nullptr, digest, nullptr, key) == 1 &&
         EVP_DigestVerify(context.get(), ASN1_STRING_get0_data(signature),
                          static_cast<size_t>(ASN1_STRING_length(signature)), asBytes(bytes),
                          bytes.size()) == 1;
}

// The library's own comparison of the digest in the attributes.
bool vouchesFor(CMS_ContentInfo* message, std::string_view content) {
  const BioOwner source = detachedContent(content);
  constexpr unsigned kFlags =
      CMS_BINARY | CMS_DETACHED | CMS_NO_SIGNER_CERT_VERIFY | CMS_NO_ATTR_VERIFY;
  return CMS_verify(message, nullptr, nullptr, source.get(), nullptr, kFlags) == 1;
}

}  // namespace

bool isSignedAsWritten(const CmsSignature& cms, std::string_view encoded,
                       std::string_view content) {
  const auto attributes = attributesIn(encoded);
  CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(CMS_get0_SignerInfos(cms.message()), 0);
  const bool good = attributes && signer != nullptr && CMS_signed_get_attr_count(signer) > 0 &&
                    saysPlainData(signer) && vouchesFor(cms.message(), content) &&
                    isSigned(signer, asSet(*attributes));
  ERR_clear_error();
  return good;
}

}  // namespace tovrek::signing
