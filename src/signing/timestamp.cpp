#include "signing/timestamp.h"

#include <openssl/err.h>
#include <openssl/pkcs7.h>
#include <openssl/ts.h>

#include <algorithm>
#include <ctime>

#include "formats/openssl_owners.h"

namespace tovrek::signing {
namespace {

using InfoOwner = std::unique_ptr<TS_TST_INFO, Freer<TS_TST_INFO_free>>;

// What was stamped is the signature's value.
bool isOver(const ASN1_OCTET_STRING* signature, TS_TST_INFO* info) {
  TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(info);
  const ASN1_OBJECT* algorithm = nullptr;
  X509_ALGOR_get0(&algorithm, nullptr, nullptr, TS_MSG_IMPRINT_get_algo(imprint));
  const EVP_MD* method = EVP_get_digestbyobj(algorithm);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (method == nullptr || EVP_Digest(ASN1_STRING_get0_data(signature),
                                      static_cast<size_t>(ASN1_STRING_length(signature)), digest,
                                      &size, method, nullptr) != 1) {
    return false;
  }
  const ASN1_OCTET_STRING* stamped = TS_MSG_IMPRINT_get_msg(imprint);
  return ASN1_STRING_length(stamped) == static_cast<int>(size) &&
         std::equal(digest, digest + size, ASN1_STRING_get0_data(stamped));
}

}  // namespace

std::optional<Timestamp> timestampOf(CMS_SignerInfo* signer) {
  const int at = CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, -1);
  X509_ATTRIBUTE* attribute = at < 0 ? nullptr : CMS_unsigned_get_attr(signer, at);
  if (attribute == nullptr) return std::nullopt;
  Timestamp stamp;
  const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr || ASN1_TYPE_get(value) != V_ASN1_SEQUENCE) return stamp;
  const ASN1_STRING* sequence = value->value.sequence;
  const unsigned char* bytes = ASN1_STRING_get0_data(sequence);
  const Pkcs7Owner token(d2i_PKCS7(nullptr, &bytes, ASN1_STRING_length(sequence)));
  const InfoOwner info(token ? PKCS7_to_TS_TST_INFO(token.get()) : nullptr);
  std::tm parts{};
  if (info && ASN1_TIME_to_tm(TS_TST_INFO_get_time(info.get()), &parts) == 1) {
    stamp.time = static_cast<double>(::timegm(&parts));
    stamp.isRight =
        isOver(CMS_SignerInfo_get0_signature(signer), info.get()) &&
        PKCS7_verify(token.get(), nullptr, nullptr, nullptr, nullptr, PKCS7_NOVERIFY) == 1;
  }
  ERR_clear_error();
  return stamp;
}

}  // namespace tovrek::signing
