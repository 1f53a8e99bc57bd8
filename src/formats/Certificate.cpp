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
  const unsigned char* start = asBytes(copy);
  const unsigned char* at = start;
  std::shared_ptr<X509> parsed = X509Owner(d2i_X509(nullptr, &at, static_cast<long>(copy.size())));
  if (!parsed || at != start + copy.size()) {
    ERR_clear_error();
    return std::nullopt;
  }
  return Certificate(std::move(parsed), copy);
}

Certificate Certificate::of(std::shared_ptr<X509> x509) {
  std::string der = encoded([&](unsigned char** out) { return i2d_X509(x509.get(), out); });
  return Certificate(std::move(x509), std::move(der));
}

Certificate::Certificate(std::shared_ptr<X509> x509, std::string der)
    : der_(std::move(der)), x509_(std::move(x509)) {
  const X509_NAME* subject = X509_get_subject_name(x509_.get());
  commonName_ = attribute(subject, NID_commonName);
  organizationalUnit_ = attribute(subject, NID_organizationalUnitName);
  organization_ = attribute(subject, NID_organizationName);
  emailAddress_ = attribute(subject, NID_pkcs9_emailAddress);
  for (const auto* name : {&commonName_, &organizationalUnit_, &organization_, &emailAddress_}) {
    if (!*name) continue;
    label_ = **name;
    break;
  }

  const auto from = secondsOf(X509_get0_notBefore(x509_.get()));
  const auto to = secondsOf(X509_get0_notAfter(x509_.get()));
  if (from && to) {
    notBefore_ = *from;
    notAfter_ = *to;
  }
  subjectDer_ = derOf(subject);
  issuerDer_ = derOf(X509_get_issuer_name(x509_.get()));
  serialNumber_ = bytesOf(X509_get0_serialNumber(x509_.get()));
  subjectKeyIdentifier_ = bytesOf(X509_get0_subject_key_id(x509_.get()));
  authorityKeyIdentifier_ = bytesOf(X509_get0_authority_key_id(x509_.get()));
  allowsCodeSigning_ = codeSigningAllowed(x509_.get());
  ERR_clear_error();  // a name or extension that could not be read leaves its complaint there
}

std::optional<std::string> Certificate::subject(const std::string& field) const {
  const int nid = OBJ_txt2nid(field.c_str());
  return nid == NID_undef ? std::nullopt : attribute(X509_get_subject_name(x509_.get()), nid);
}

std::string Certificate::signerName() const {
  return commonName_ ? *commonName_ : organization_.value_or("(unknown)");
}

std::string Certificate::sha1() const {
  return digestOf(DigestAlgorithm::kSha1, der_);
}

std::string Certificate::sha1Hex() const {
  return hexLower(sha1());
}

bool Certificate::isSignedBy(const Certificate& issuer) const {
  EVP_PKEY* key = X509_get0_pubkey(issuer.x509_.get());
  const bool isSigned = key != nullptr && X509_verify(x509_.get(), key) == 1;
  ERR_clear_error();
  return isSigned;
}

bool Certificate::isIssuedBy(const Certificate& issuer) const {
  const bool fits = X509_check_issued(issuer.x509_.get(), x509_.get()) == X509_V_OK;
  ERR_clear_error();
  return fits && isSignedBy(issuer);
}

bool Certificate::hasExtension(const std::string& oid) const {
  const ObjectOwner object(OBJ_txt2obj(oid.c_str(), 1));
  return object && X509_get_ext_by_OBJ(x509_.get(), object.get(), -1) >= 0;
}

}  // namespace tovrek
