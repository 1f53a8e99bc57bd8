// X.509 certificates (OpenSSL), as far as names and digests are asked for.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

class Certificate {
 public:
  // None when the bytes are not one DER-encoded certificate.
  static std::optional<Certificate> fromDer(std::string_view der);

  const std::string& der() const { return der_; }
  // The first (most specific) common name, as UTF-8 from any string type; none without one.
  const std::optional<std::string>& commonName() const { return commonName_; }
  // What a keychain shows: common name, else organisational unit, organisation, e-mail, else "".
  const std::string& inferredLabel() const { return label_; }
  // The first organisational unit of the subject; none without one.
  const std::optional<std::string>& organizationalUnit() const { return organizationalUnit_; }
  // SHA-1 over the DER form, 40 lower-case digits.
  std::string sha1Hex() const;

 private:
  std::string der_;
  std::optional<std::string> commonName_;
  std::optional<std::string> organizationalUnit_;
  std::string label_;
};

}  // namespace tovrek
