#include "tests/signing/TestAuthority.h"

#include <openssl/pem.h>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"

namespace tovrek::test {
namespace {

constexpr const char* kAuthorityExtensions =
    "basicConstraints=critical,CA:TRUE\nsubjectKeyIdentifier=hash\n";
constexpr const char* kLeafExtensions =
    "keyUsage=critical,digitalSignature\nextendedKeyUsage=critical,codeSigning\n";

Certificate certificateIn(const IdentityFiles& files) {
  return *Certificate::fromDer(derOf(files.certificate));
}

std::shared_ptr<EVP_PKEY> keyIn(const std::string& path) {
  const std::string pem = contentsOf(path);
  const BioOwner source(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  return {PEM_read_bio_PrivateKey(source.get(), nullptr, nullptr, nullptr), EVP_PKEY_free};
}

}  // namespace

const TestAuthority& TestAuthority::shared() {
  static const TestAuthority authority;
  return authority;
}

TestAuthority::TestAuthority() {
  IdentityRequest request;
  request.subject = "/O=Test Authority/CN=Test Root";
  request.extensions = kAuthorityExtensions;
  root_ = makeIdentity(folder_, "root", request);
  request.subject = "/O=Test Authority/CN=Test Intermediate";
  request.extensions = std::string(kAuthorityExtensions) + "1.2.840.113635.100.6.2.1=DER:0500\n";
  request.issuer = &root_;
  intermediate_ = makeIdentity(folder_, "intermediate", request);
  marked_ = issue("marked",
                  std::string(kLeafExtensions) + "1.2.840.113635.100.6.1.4=critical,DER:0500\n");
  unmarked_ = issue("unmarked", kLeafExtensions);
  IdentityRequest nameless;
  nameless.subject = "/CN=Somebody";
  nameless_ = signing::CertificateChain({certificateIn(makeIdentity(folder_, "alone", nameless))});
}

signing::SigningIdentity TestAuthority::issue(const std::string& name,
                                              const std::string& extensions) {
  IdentityRequest request;
  request.subject = "/CN=iPhone Distribution: Example (ABCDE12345)/OU=ABCDE12345/O=Example";
  request.extensions = extensions;
  request.issuer = &intermediate_;
  const IdentityFiles files = makeIdentity(folder_, name, request);
  return {signing::CertificateChain(
              {certificateIn(files), certificateIn(intermediate_), certificateIn(root_)}),
          keyIn(files.key)};
}

std::string TestAuthority::rootSha1() const {
  return hexLower(marked_.chain.certificates().back().sha1());
}

}  // namespace tovrek::test
