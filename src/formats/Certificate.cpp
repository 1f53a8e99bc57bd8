#include "formats/Certificate.h"

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <climits>
#include <ctime>
#include <memory>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"

namespace tovrek {

namespace {

std::string bytesOf(const ASN1_STRING* text) {
  if (text == nullptr || ASN1_STRING_length(text) <= 0) return {};
  const unsigned char* data = ASN1_STRING_get0_data(text);
  return std::string(data, data + ASN1_STRING_length(text));
}

// The first attribute of that kind as UTF-8, whatever string type holds it.
std::optional<std::string> attribute(const X509_NAME* name, int nid) {
  const int at = X509_NAME_get_index_by_NID(name, nid, -1);
  if (at < 0) return std::nullopt;
  const ASN1_STRING* text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at));
  unsigned char* utf8 = nullptr;
  const int length = ASN1_STRING_to_UTF8(&utf8, text);
  if (length < 0) return std::nullopt;
  std::string value(utf8, utf8 + length);
  OPENSSL_free(utf8);
  return value;
}

std::string derOf(const X509_NAME* name) {
  const unsigned char* data = nullptr;
  size_t size = 0;
  if (X509_NAME_get0_der(name, &data, &size) != 1) return {};
  return std::string(data, data + size);
}

std::optional<double> secondsOf(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return static_cast<double>(timegm(&parts));
}

bool codeSigningAllowed(X509* certificate) {
  using Usages = std::unique_ptr<EXTENDED_KEY_USAGE, Freer<EXTENDED_KEY_USAGE_free>>;
  int critical = -1;
  const Usages usages(static_cast<EXTENDED_KEY_USAGE*>(
      X509_get_ext_d2i(certificate, NID_ext_key_usage, &critical, nullptr)));
  // -1 says that there is no such extension; anything else without a value is a damaged one.
  if (!usages) return critical == -1;
  for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
    const int nid = OBJ_obj2nid(sk_ASN1_OBJECT_value(usages.get(), i));
    if (nid == NID_code_sign || nid == NID_anyExtendedKeyUsage) return true;
  }
  return false;
}

}  // namespace

std::optional<Certificate> Certificate::fromDer(std::string_view der) {
  if (der.empty() || der.size() > LONG_MAX) return std::nullopt;
  const std::string copy(der);
  const auto* start = static_cast<const unsigned char*>(static_cast<const void*>(copy.data()));
  const unsigned char* at = start;
  X509Owner parsed(d2i_X509(nullptr, &at, static_cast<long>(copy.size())));
  if (!parsed || at != start + copy.size()) {
    ERR_clear_error();
    return std::nullopt;
  }
  X509* x509 = parsed.get();

  Certificate result;
  result.der_ = copy;
  const X509_NAME* subject = X509_get_subject_name(x509);
  result.commonName_ = attribute(subject, NID_commonName);
  result.organizationalUnit_ = attribute(subject, NID_organizationalUnitName);
  result.organization_ = attribute(subject, NID_organizationName);
  result.emailAddress_ = attribute(subject, NID_pkcs9_emailAddress);
  for (const auto* name : {&result.commonName_, &result.organizationalUnit_, &result.organization_,
                           &result.emailAddress_}) {
    if (!*name) continue;
    result.label_ = **name;
    break;
  }

  const auto from = secondsOf(X509_get0_notBefore(x509));
  const auto to = secondsOf(X509_get0_notAfter(x509));
  if (from && to) {
    result.notBefore_ = *from;
    result.notAfter_ = *to;
  }
  result.subjectDer_ = derOf(subject);
  result.issuerDer_ = derOf(X509_get_issuer_name(x509));
  result.serialNumber_ = bytesOf(X509_get0_serialNumber(x509));
  result.subjectKeyIdentifier_ = bytesOf(X509_get0_subject_key_id(x509));
  result.authorityKeyIdentifier_ = bytesOf(X509_get0_authority_key_id(x509));
  result.allowsCodeSigning_ = codeSigningAllowed(x509);
  result.x509_ = std::move(parsed);
  ERR_clear_error();  // a name or extension that could not be read leaves its complaint there
  return result;
}

std::string Certificate::sha1Hex() const {
  return hexLower(digestOf(DigestAlgorithm::kSha1, der_));
}

}  // namespace tovrek
