// A certificate authority of three levels, shaped like Apple's, made by the openssl program.
#pragma once

#include <string>

#include "signing/SigningIdentity.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::test {

class TestAuthority {
 public:
  TestAuthority();
  // Made once for all tests of a program.
  static const TestAuthority& shared();

  // "iPhone Distribution: Example (ABCDE12345)", marked as a distribution certificate.
  const signing::SigningIdentity& identity() const { return marked_; }
  // The same without the mark.
  const signing::SigningIdentity& identityWithoutMark() const { return unmarked_; }
  const signing::CertificateChain& selfSignedWithoutOrganization() const { return nameless_; }
  std::string rootSha1() const;  // as hexadecimal digits

 private:
  signing::SigningIdentity issue(const std::string& name, const std::string& extensions);

  TemporaryFolder folder_;
  IdentityFiles root_, intermediate_;
  signing::SigningIdentity marked_, unmarked_;
  signing::CertificateChain nameless_;
};

}  // namespace tovrek::test
