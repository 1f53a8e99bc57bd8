// The certificates of a signer, and what the rules of code signing ask of them.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek::signing {

// Extensions by which Apple marks certificates.
inline constexpr const char* kWwdrIntermediateOid = "1.2.840.113635.100.6.2.1";

class CodeCertificate {
 public:
  // None when the bytes are not one DER-encoded certificate.
  static std::optional<CodeCertificate> fromDer(std::string_view der);

  // Of one that is read already, from `der`, and is shared.
  static CodeCertificate of(std::shared_ptr<X509> x509, std::string der);

  const std::string& der() const { return der_; }
  X509* x509() const { return x509_.get(); }
  std::string sha1() const;  // 20 bytes
  // The first attribute of the subject with that short name ("CN", "O", "OU", ...), as UTF-8.
  std::optional<std::string> subject(const char* field) const;
  // Whether an extension with that dotted object identifier is there.
  bool hasExtension(const std::string& oid) const;
  bool isSelfSigned() const;
  bool isIssuedBy(const CodeCertificate& issuer) const;
  // What people know it by: the common name, else organisation, else "(unknown)".
  std::string displayName() const;

 private:
  std::string der_;
  std::shared_ptr<X509> x509_;
};

// Leaf first, root (as far as it is known) last.
class CertificateChain {
 public:
  CertificateChain() = default;
  explicit CertificateChain(std::vector<CodeCertificate> certificates)
      : certificates_(std::move(certificates)) {}
  // Orders `others` above `leaf` by who issued whom; those that issued nothing here are left out.
  static CertificateChain build(const CodeCertificate& leaf,
                                const std::vector<CodeCertificate>& others);

  const std::vector<CodeCertificate>& certificates() const { return certificates_; }
  size_t size() const { return certificates_.size(); }
  bool empty() const { return certificates_.empty(); }
  const CodeCertificate& leaf() const { return certificates_.front(); }
  // Slot numbers as requirements write them: 0 is the leaf, -1 the last one; null beyond the ends.
  const CodeCertificate* at(int slot) const;

  // Whether the chain reaches Apple's root certificate, which is known by its SHA-1.
  //
  // An organisation that runs its own test authority can have its root treated like Apple's by
  // naming that root's SHA-1 (40 hexadecimal digits) in $TOVREK_TRUSTED_ROOT_SHA1; its signatures
  // then get a team identifier and Apple's form of the designated requirement. Devices know
  // nothing of that: it is for trying things out where no Apple-issued identity is at hand.
  bool isApples() const;
  // As isApples(), with the shape of development and distribution certificates: three long, with
  // a marked intermediate.
  bool isAppleDevelopment() const;
  // The leaf's organisational unit when the chain is Apple's and the leaf carries one of the marks
  // of development and distribution certificates; empty otherwise.
  std::string teamId() const;

 private:
  std::vector<CodeCertificate> certificates_;
};

}  // namespace tovrek::signing
