#include "programs/security/item_search.h"

#include <openssl/pem.h>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"
#include "host/paths.h"

namespace tovrek::security {

namespace {

bool fits(const Certificate& certificate, const std::optional<std::string>& name,
          const std::optional<std::string>& digest) {
  if (name && !equalsIgnoringCase(certificate.inferredLabel(), *name)) return false;
  return !digest || equalsIgnoringCase(certificate.sha1Hex(), *digest) ||
         equalsIgnoringCase(hexLower(digestOf(DigestAlgorithm::kSha256, certificate.der())),
                            *digest);
}

}  // namespace

std::vector<Located<Certificate>> certificatesBy(const std::vector<keychain::Keychain>& keychains,
                                                 const std::optional<std::string>& name,
                                                 const std::optional<std::string>& digest) {
  std::vector<Located<Certificate>> found;
  for (const auto& each : keychains) {
    for (const Certificate& certificate : each.certificates()) {
      if (fits(certificate, name, digest)) found.push_back({certificate, each.path()});
    }
  }
  return found;
}

std::vector<Located<keychain::Identity>> identitiesBy(
    const std::vector<keychain::Keychain>& keychains, const std::optional<std::string>& name,
    const std::optional<std::string>& digest) {
  std::vector<Located<keychain::Identity>> found;
  for (const auto& each : keychains) {
    for (keychain::Identity& identity : each.identities()) {
      if (fits(identity.leaf, name, digest)) found.push_back({std::move(identity), each.path()});
    }
  }
  return found;
}

std::string pemOf(const Certificate& certificate) {
  const BioOwner memory(BIO_new(BIO_s_mem()));
  PEM_write_bio(memory.get(), "CERTIFICATE", "", asBytes(certificate.der()),
                static_cast<long>(certificate.der().size()));
  return contentsOf(memory.get());
}

}  // namespace tovrek::security
