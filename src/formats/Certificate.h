// X.509 certificates (OpenSSL; RFC 5280), as far as names, digests, validity, extensions and the
// links between a certificate and its issuer are asked for.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

// A value: everything is read from the DER form once and kept as plain text and bytes.
class Certificate {
 public:
  // None when the bytes are not one DER-encoded certificate.
  static std::optional<Certificate> fromDer(std::string_view der);
  // Of one that OpenSSL has read already. Must not be null.
  static Certificate of(std::shared_ptr<X509> x509);

  const std::string& der() const { return der_; }
  // OpenSSL's form, shared by all copies: reading a certificate anew costs a search through all
  // decoders of keys. Never null, and not to be changed.
  const std::shared_ptr<X509>& x509() const { return x509_; }
  // The first (most specific) common name, as UTF-8 from any string type; none without one.
  const std::optional<std::string>& commonName() const { return commonName_; }
  // What a keychain shows: common name, else organisational unit, organisation, e-mail, else "".
  const std::string& inferredLabel() const { return label_; }
  // The first organisational unit of the subject; none without one.
  const std::optional<std::string>& organizationalUnit() const { return organizationalUnit_; }
  // The first organisation of the subject; none without one.
  const std::optional<std::string>& organization() const { return organization_; }
  // The first e-mail address of the subject; none without one.
  const std::optional<std::string>& emailAddress() const { return emailAddress_; }
  // The first attribute of the subject with that short name ("CN", "O", "OU", ...), as UTF-8.
  std::optional<std::string> subject(const std::string& field) const;
  // Who signed, as codesign tells it: the common name, else organisation, else "(unknown)".
  std::string signerName() const;
  // SHA-1 over the DER form: 20 bytes, and as 40 lower-case digits.
  std::string sha1() const;
  std::string sha1Hex() const;

  // Validity, in seconds since 1970. A time that cannot be read makes an empty range.
  double notBefore() const { return notBefore_; }
  double notAfter() const { return notAfter_; }

  // DER forms of the subject and issuer names, and the serial number's bytes (big-endian).
  const std::string& subjectDer() const { return subjectDer_; }
  const std::string& issuerDer() const { return issuerDer_; }
  const std::string& serialNumber() const { return serialNumber_; }
  // The key identifiers of the certificate itself and of its issuer; empty where not given.
  const std::string& subjectKeyIdentifier() const { return subjectKeyIdentifier_; }
  const std::string& authorityKeyIdentifier() const { return authorityKeyIdentifier_; }

  // Issuer and subject have one name: the upper end of a chain.
  bool isSelfIssued() const { return subjectDer_ == issuerDer_; }
  // Whether the issuer's key made this certificate's signature, whatever names and uses say.
  bool isSignedBy(const Certificate& issuer) const;
  // As isSignedBy(), with names, key identifiers and the issuer's uses as they have to be.
  bool isIssuedBy(const Certificate& issuer) const;
  bool isSelfSigned() const { return isIssuedBy(*this); }
  // Whether an extension with that dotted object identifier is there.
  bool hasExtension(const std::string& oid) const;
  // Whether the extended key usage lets the key sign code: it lists code signing or any use, or
  // the certificate does not limit its uses at all.
  bool allowsCodeSigning() const { return allowsCodeSigning_; }

 private:
  Certificate(std::shared_ptr<X509> x509, std::string der);

  std::string der_;
  std::shared_ptr<X509> x509_;
  std::optional<std::string> commonName_;
  std::optional<std::string> organizationalUnit_;
  std::optional<std::string> organization_;
  std::optional<std::string> emailAddress_;
  std::string label_;
  double notBefore_ = 0;
  double notAfter_ = 0;
  std::string subjectDer_;
  std::string issuerDer_;
  std::string serialNumber_;
  std::string subjectKeyIdentifier_;
  std::string authorityKeyIdentifier_;
  bool allowsCodeSigning_ = true;
};

}  // namespace tovrek
