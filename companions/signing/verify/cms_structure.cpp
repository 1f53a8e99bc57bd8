#include "companions/signing/verify/cms_structure.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <optional>
#include <string>
#include <string_view>

#include "companions/signing/bytes.h"

namespace tovrek::signing {
namespace {

constexpr uint8_t kInteger = 0x02;
constexpr uint8_t kSet = 0x31;

// One DER element after the other.
class DerReader {
 public:
  explicit DerReader(std::string_view bytes) : rest_(bytes) {}

  struct Element {
    uint8_t tag = 0;
    std::string_view contents;
  };
  std::optional<Element> next() {
    if (rest_.size() < 2) return std::nullopt;
    const auto tag = static_cast<uint8_t>(rest_[0]);
    size_t length = static_cast<uint8_t>(rest_[1]);
    size_t header = 2;
    if (length >= 0x80) {
      const size_t digits = length & 0x7f;
      if (digits > 4 || rest_.size() < 2 + digits) return std::nullopt;
      length = 0;
      for (size_t i = 0; i < digits; ++i) length = length << 8 | static_cast<uint8_t>(rest_[2 + i]);
      header += digits;
    }
    if (!holds(rest_, header, length)) return std::nullopt;
    const Element element{tag, rest_.substr(header, length)};
    rest_.remove_prefix(header + length);
    return element;
  }

 private:
  std::string_view rest_;
};

template <class T, class Encode>
std::string derOf(const T* object, Encode encode) {
  unsigned char* bytes = nullptr;
  const int size = encode(object, &bytes);
  if (size <= 0) return "";
  std::string der(bytes, bytes + size);
  OPENSSL_free(bytes);
  return der;
}

// The library checks neither version: that of the message and that of its signer are both 1 where
// the signer is known by the issuer's name, else both 3.
bool areVersionsRight(CMS_ContentInfo* cms, bool byName) {
  const std::string der = derOf(cms, i2d_CMS_ContentInfo);
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
  if (!version || version->tag != kInteger || version->contents != wanted) return false;
  parts.next();  // digests
  std::optional<DerReader::Element> signers;
  while (const auto part = parts.next()) signers = part;
  const auto signer =
      signers && signers->tag == kSet ? DerReader(signers->contents).next() : std::nullopt;
  const auto signerVersion = signer ? DerReader(signer->contents).next() : std::nullopt;
  return signerVersion && signerVersion->tag == kInteger && signerVersion->contents == wanted;
}

// The library compares names without regard to case and kind of string.
bool isNamedExactly(const X509_NAME* issuer, const X509* certificate) {
  return derOf(issuer, i2d_X509_NAME) == derOf(X509_get_issuer_name(certificate), i2d_X509_NAME);
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

bool isConsistent(CMS_ContentInfo* cms) {
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
      areVersionsRight(cms, issuer != nullptr) && areAlgorithmsRight(signer, certificate);
  ERR_clear_error();
  return consistent;
}

}  // namespace tovrek::signing
