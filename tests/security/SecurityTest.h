// Tests of the program `security`.
#pragma once

#include "formats/Digest.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::test {

class SecurityTest : public CompanionTest {
 protected:
  std::string dataFolder() const { return folder_.file("home/.local/share/tovrek"); }
  static std::string upperDigest(const IdentityFiles& files) {
    return hexUpper(digestOf(DigestAlgorithm::kSha1, derOf(files.certificate)));
  }
  IdentityFiles makeNamed(const std::string& name, const std::string& commonName, int days = 30) {
    IdentityRequest request;
    request.subject = "/CN=" + commonName + "/OU=TEAM123456/O=Test";
    request.days = days;
    return makeIdentity(folder_, name, request);
  }
};

}  // namespace tovrek::test
