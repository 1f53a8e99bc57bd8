#include "signing/CmsSignature.h"

#include <fmt/format.h>
#include <openssl/asn1.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <ctime>
#include <map>

#include "host/bytes.h"
#include "signing/cms_attributes.h"

namespace tovrek::signing {
namespace {

constexpr unsigned kSigningFlags = CMS_PARTIAL | CMS_BINARY | CMS_DETACHED | CMS_NOSMIMECAP;

bool addAttributes(CMS_SignerInfo* signer, const std::vector<CodeDirectory>& directories) {
  const std::string plist = cdHashesPlist(directories);
  const ObjectOwner plistOid(OBJ_txt2obj(kCdHashesOid, 1));
  if (CMS_signed_add1_attr_by_OBJ(signer, plistOid.get(), V_ASN1_OCTET_STRING, plist.data(),
                                  static_cast<int>(plist.size())) != 1) {
    return false;
  }
  const ObjectOwner namedOid(OBJ_txt2obj(kNamedHashesOid, 1));
  AttributeOwner named;
  for (const CodeDirectory& directory : directories) {
    const std::string value = namedHashDer(directory);
    const auto size = static_cast<int>(value.size());
    if (!named) {
      named.reset(X509_ATTRIBUTE_create_by_OBJ(nullptr, namedOid.get(), V_ASN1_SEQUENCE,
                                               value.data(), size));
    } else if (X509_ATTRIBUTE_set1_data(named.get(), V_ASN1_SEQUENCE, value.data(), size) != 1) {
      return false;
    }
  }
  return named && CMS_signed_add1_attr(signer, named.get()) == 1;
}

}  // namespace

std::optional<std::string> makeCms(const SigningIdentity& identity,
                                   const std::vector<CodeDirectory>& directories,
                                   ErrorText* error) {
  const CmsOwner cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, kSigningFlags));
  CMS_SignerInfo* signer = cms ? CMS_add1_signer(cms.get(), identity.chain.leaf().x509().get(),
                                                 identity.key.get(), EVP_sha256(), kSigningFlags)
                               : nullptr;
  bool good = signer != nullptr && addAttributes(signer, directories);
  for (size_t i = 1; good && i < identity.chain.size(); ++i) {
    good = CMS_add1_cert(cms.get(), identity.chain.certificates()[i].x509().get()) == 1;
  }
  const BioOwner content = readingFrom(directories.front().blob());
  good = good && CMS_final(cms.get(), content.get(), nullptr, CMS_BINARY | CMS_DETACHED) == 1;
  std::string der =
      good ? encoded([&](unsigned char** out) { return i2d_CMS_ContentInfo(cms.get(), out); }) : "";
  if (der.empty()) {
    fail(error, "errSecInternalComponent (" + opensslReason() + ")");
    return std::nullopt;
  }
  return der;
}

bool CmsSignature::decode(std::string_view bytes) {
  const BioOwner source = readingFrom(bytes);
  cms_.reset(d2i_CMS_bio(source.get(), nullptr), Freer<CMS_ContentInfo_free>());
  return cms_ && OBJ_obj2nid(CMS_get0_type(cms_.get())) == NID_pkcs7_signed;
}

std::optional<CmsSignature> CmsSignature::parse(std::string_view bytes, ErrorText* error) {
  CmsSignature signature;
  if (!signature.decode(bytes)) {
    fail(error, "the signature is no signed CMS message (" + opensslReason() + ")");
    return std::nullopt;
  }
  if (!signature.readSigner(nullptr, error)) return std::nullopt;
  return signature;
}

std::optional<CmsSignature> CmsSignature::parse(std::string_view bytes, KnownCertificates* known) {
  const auto parts = withoutCertificates(bytes);
  KnownCertificates::Set* set = parts ? known->read(parts->certificates) : nullptr;
  CmsSignature signature;
  bool good = set != nullptr && signature.decode(parts->rest);
  for (size_t i = 0; good && i < set->certificates.size(); ++i) {
    // Not for one that is there twice.
    good = CMS_add1_cert(signature.cms_.get(), set->certificates[i].x509().get()) == 1;
  }
  if (good && signature.readSigner(set, nullptr)) return signature;
  ERR_clear_error();
  return parse(bytes);
}

namespace {

std::vector<Certificate> certificatesIn(CMS_ContentInfo* cms) {
  const CertificateList enclosed(CMS_get1_certs(cms));
  std::vector<Certificate> certificates;
  for (int i = 0; i < sk_X509_num(enclosed.get()); ++i) {
    X509* x509 = sk_X509_value(enclosed.get(), i);
    X509_up_ref(x509);
    certificates.push_back(Certificate::of(X509Owner(x509)));
  }
  return certificates;
}

}  // namespace

bool CmsSignature::readSigner(KnownCertificates::Set* known, ErrorText* error) {
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms_.get());
  if (sk_CMS_SignerInfo_num(signers) != 1) {
    return fail(error, fmt::format("the signature has {} signers, not one",
                                   std::max(0, sk_CMS_SignerInfo_num(signers))));
  }
  CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
  KnownCertificates::Set own;
  if (known == nullptr) own.certificates = certificatesIn(cms_.get());
  KnownCertificates::Set* set = known == nullptr ? &own : known;
  const auto leaf = std::ranges::find_if(set->certificates, [&](const Certificate& each) {
    return CMS_SignerInfo_cert_cmp(signer, each.x509().get()) == 0;
  });
  if (leaf == set->certificates.end()) {
    return fail(error, "the signer's certificate is not in the signature");
  }
  CMS_SignerInfo_set1_signer_cert(signer, leaf->x509().get());
  chain_ = KnownCertificates::chainOf(set, *leaf);
  signingTime_ = signingTimeOf(signer);
  timestamp_ = timestampOf(signer);
  cdHashes_ = cdHashesOf(signer);
  namedHashes_ = namedHashesOf(signer);
  return true;
}

bool CmsSignature::isSignatureOver(std::string_view content, ErrorText* error) const {
  const BioOwner source = detachedContent(content);
  constexpr unsigned kFlags = CMS_BINARY | CMS_DETACHED | CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(cms_.get(), nullptr, nullptr, source.get(), nullptr, kFlags) == 1) return true;
  return fail(error, opensslReason());
}

}  // namespace tovrek::signing
