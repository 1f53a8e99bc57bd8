// Keys and certificates made by the host's openssl program.
#pragma once

#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// Runs openssl with the arguments; a failure fails the running test. Answers its output.
std::string runOpenssl(const std::vector<std::string>& arguments);

// PEM files of one identity.
struct IdentityFiles {
  std::string key, certificate;
};

struct IdentityRequest {
  std::string subject = "/CN=iPhone Distribution: Test/OU=TEAM123456/O=Test";
  // Lines of an extension file.
  std::string extensions = "extendedKeyUsage=codeSigning\nsubjectKeyIdentifier=hash\n";
  const IdentityFiles* issuer = nullptr;  // null: self-signed
  int days = 30;                          // -1: expired yesterday
  std::string existingKey;                // a PEM file to take instead of a new key
};

// Makes NAME.key and NAME.pem in the folder (elliptic curve P-256).
IdentityFiles makeIdentity(const TemporaryFolder& folder, const std::string& name,
                           const IdentityRequest& request = {});

// Makes NAME.p12 of it; `options` go to "openssl pkcs12 -export", such as "-legacy".
std::string makePkcs12(const TemporaryFolder& folder, const std::string& name,
                       const IdentityFiles& identity, const std::string& password,
                       const std::vector<std::string>& options = {});

// The certificate's DER form.
std::string derOf(const std::string& certificateFile);

}  // namespace tovrek::test
