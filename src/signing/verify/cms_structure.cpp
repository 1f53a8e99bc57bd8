#include "signing/verify/cms_structure.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <optional>
#include <string>
#include <string_view>

#include "formats/openssl_owners.h"
#include "signing/verify/DerReader.h"

namespace tovrek::signing {
namespace {

constexpr int kDeepestNesting = 64;

std::string derOf(const X509_NAME* name) {
  return encoded([&](unsigned char** der) { return i2d_X509_NAME(name, der); });
}

// The library reads a set or sequence that calls itself primitive as if it did not. Walks over all
// elements, of definite and indefinite length.
class TagChecker {
 public:
  TagChecker(std::string_view bytes, bool byName) : rest_(bytes), byName_(byName) {}
  bool check() { return elements(rest_.size(), false, 0) && rest_.empty(); }

 private:
  // Those in the next `size` bytes, or up to the mark that ends an indefinite length.
  bool elements(size_t size, bool toMark, int depth) {
    if (depth > kDeepestNesting) return false;
    const size_t stop = rest_.size() - size;
    while (rest_.size() > stop) {
      if (toMark && rest_.starts_with(std::string_view("\0\0", 2))) {
        rest_.remove_prefix(2);
        return true;
      }
      if (!element(rest_.size() - stop, depth)) return false;
    }
    return !toMark && rest_.size() == stop;
  }

  bool element(size_t room, int depth) {
    const unsigned char* start = asBytes(rest_);
    const unsigned char* at = start;
    long length = 0;
    int tag = 0;
    int kind = 0;
    const int form = ASN1_get_object(&at, &length, &tag, &kind, static_cast<long>(room));
    if ((form & 0x80) != 0) return false;
    const bool constructed = (form & V_ASN1_CONSTRUCTED) != 0;
    if (!mayBe(constructed, tag, kind)) return false;
    const auto header = static_cast<size_t>(at - start);
    rest_.remove_prefix(header);
    const bool indefinite = (form & 1) != 0;
    if (constructed) {
      return elements(indefinite ? room - header : static_cast<size_t>(length), indefinite,
                      depth + 1);
    }
    rest_.remove_prefix(static_cast<size_t>(length));
    return !indefinite;
  }

  // Strings may come in pieces. In the message all tags of its own are constructed, but for the
  // signer's key identifier and a certificate's rare unique identifiers.
  bool mayBe(bool constructed, int tag, int kind) const {
    if (kind == V_ASN1_UNIVERSAL) {
      const bool holdsOthers = tag == V_ASN1_SEQUENCE || tag == V_ASN1_SET;
      return constructed == holdsOthers || (constructed && tag == V_ASN1_OCTET_STRING);
    }
    return constructed || tag == 2 || (tag == 0 && !byName_);
  }

  std::string_view rest_;
  bool byName_;
};

// The library checks neither version: that of the message and that of its signer are both 1 where
// the signer is known by the issuer's name, else both 3.
bool areVersionsRight(CMS_ContentInfo* cms, bool byName) {
  const std::string der =
      encoded([&](unsigned char** out) { return i2d_CMS_ContentInfo(cms, out); });
  const std::string wanted(1, byName ? '\1' : '\3');
  DerReader outer(der);
  const auto info = outer.next();
  if (!info) return false;
  DerReader infoParts(info->contents);
  infoParts.next();  // type
  const auto content = infoParts.next();
  const auto data = content ? DerReader(content->contents).next() : std::nullopt;
  if (!data) return false;
  DerReader parts(data->contents);
  const auto version = parts.next();
  if (!version || version->tag != DerReader::kInteger || version->contents != wanted) return false;
  parts.next();  // digests
  std::optional<DerReader::Element> signers;
  while (const auto part = parts.next()) signers = part;
  const auto signer = signers && signers->tag == DerReader::kSet
                          ? DerReader(signers->contents).next()
                          : std::nullopt;
  const auto signerVersion = signer ? DerReader(signer->contents).next() : std::nullopt;
  return signerVersion && signerVersion->tag == DerReader::kInteger &&
         signerVersion->contents == wanted;
}

// The library compares names without regard to case and kind of string.
bool isNamedExactly(const X509_NAME* issuer, const X509* certificate) {
  return derOf(issuer) == derOf(X509_get_issuer_name(certificate));
}

// Either the bare kind of key, or that together with the digest in use.
bool areAlgorithmsRight(CMS_SignerInfo* signer, const X509* certificate) {
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* signature = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, &signature);
  const ASN1_OBJECT* digestName = nullptr;
  const ASN1_OBJECT* signatureName = nullptr;
  int parameterType = V_ASN1_UNDEF;
  X509_ALGOR_get0(&digestName, nullptr, nullptr, digest);
  X509_ALGOR_get0(&signatureName, &parameterType, nullptr, signature);
  const EVP_PKEY* key = X509_get0_pubkey(certificate);
  if (key == nullptr || (parameterType != V_ASN1_NULL && parameterType != V_ASN1_UNDEF)) {
    return false;
  }
  const int name = OBJ_obj2nid(signatureName);
  if (name == EVP_PKEY_get_base_id(key)) return true;
  int ofDigest = NID_undef;
  int ofKey = NID_undef;
  return OBJ_find_sigid_algs(name, &ofDigest, &ofKey) == 1 && ofKey == EVP_PKEY_get_base_id(key) &&
         ofDigest == OBJ_obj2nid(digestName);
}

}  // namespace

bool isConsistent(CMS_ContentInfo* cms, std::string_view encoded) {
  STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(cms);
  if (sk_CMS_SignerInfo_num(signers) != 1) return false;
  CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
  X509* certificate = nullptr;
  CMS_SignerInfo_get0_algs(signer, nullptr, &certificate, nullptr, nullptr);
  X509_NAME* issuer = nullptr;
  CMS_SignerInfo_get0_signer_id(signer, nullptr, &issuer, nullptr);
  const bool consistent =
      certificate != nullptr && OBJ_obj2nid(CMS_get0_eContentType(cms)) == NID_pkcs7_data &&
      (issuer == nullptr || isNamedExactly(issuer, certificate)) &&
      TagChecker(encoded, issuer != nullptr).check() && areVersionsRight(cms, issuer != nullptr) &&
      areAlgorithmsRight(signer, certificate);
  ERR_clear_error();
  return consistent;
}

}  // namespace tovrek::signing
