// The certificates of a signer, and what the rules of code signing ask of them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "formats/Certificate.h"

namespace tovrek::signing {

// Extensions by which Apple marks certificates.
inline constexpr const char* kWwdrIntermediateOid = "1.2.840.113635.100.6.2.1";

// Leaf first, root (as far as it is known) last.
class CertificateChain {
 public:
  CertificateChain() = default;
  explicit CertificateChain(std::vector<Certificate> certificates)
      : certificates_(std::move(certificates)) {}
  // Orders `others` above `leaf` by who issued whom; those that issued nothing here are left out.
  static CertificateChain build(const Certificate& leaf, const std::vector<Certificate>& others);

  const std::vector<Certificate>& certificates() const { return certificates_; }
  size_t size() const { return certificates_.size(); }
  bool empty() const { return certificates_.empty(); }
  const Certificate& leaf() const { return certificates_.front(); }
  // Slot numbers as requirements write them: 0 is the leaf, -1 the last one; null beyond the ends.
  const Certificate* at(int slot) const;

  // This chain with the missing issuers from those that the host knows, see authorities.h. Where
  // it ends at a root already, nothing is read.
  CertificateChain completed() const;

  // Whether the chain reaches one of Apple's root certificates, which are known by their SHA-1.
  //
  // An organisation that runs its own test authority can have its root treated like Apple's by
  // putting it into one of rootFolders(), or by naming its SHA-1 (40 hexadecimal digits) in
  // $TOVREK_TRUSTED_ROOT_SHA1; its signatures then get a team identifier and Apple's form of the
  // designated requirement. Devices know nothing of that: it is for trying things out where no
  // Apple-issued identity is at hand.
  bool isApples() const;
  // As isApples(), with the shape of development and distribution certificates: three long, with
  // a marked intermediate.
  bool isAppleDevelopment() const;
  // The leaf's organisational unit when the chain is Apple's and the leaf carries one of the marks
  // of development and distribution certificates; empty otherwise.
  std::string teamId() const;

 private:
  std::vector<Certificate> certificates_;
};

}  // namespace tovrek::signing
