#include "programs/security/cms_signing.h"

#include "formats/openssl_owners.h"

namespace tovrek::security {

std::optional<std::string> signedMessage(std::string_view content,
                                         const keychain::Identity& identity,
                                         const CmsOptions& options, ErrorText* error) {
  const auto failed = [&](std::string text) {
    ERR_clear_error();
    fail(error, std::move(text));
    return std::nullopt;
  };
  const EVP_MD* digest = EVP_get_digestbyname(options.digest.c_str());
  if (digest == nullptr) return failed("unknown digest " + options.digest);
  const keychain::PrivateKey key = identity.usableKey(error);
  if (!key) return std::nullopt;
  const unsigned flags =
      CMS_PARTIAL | CMS_BINARY | CMS_NOSMIMECAP | (options.detached ? unsigned{CMS_DETACHED} : 0);
  const CmsOwner message(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  if (!message || CMS_add1_signer(message.get(), identity.leaf.x509().get(), key.get(), digest,
                                  flags) == nullptr) {
    return failed(opensslReason());
  }
  for (const Certificate& issuer : identity.chain) {
    CMS_add1_cert(message.get(), issuer.x509().get());
  }
  const BioOwner from = readingFrom(content);
  if (CMS_final(message.get(), from.get(), nullptr, flags) != 1) return failed(opensslReason());
  return encoded([&](unsigned char** out) { return i2d_CMS_ContentInfo(message.get(), out); });
}

}  // namespace tovrek::security
