#include "companions/security/cms_signing.h"

#include "formats/openssl_owners.h"

namespace tovrek::security {

namespace {

X509Owner parsed(std::string_view der) {
  const unsigned char* at = asBytes(der);
  return X509Owner(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
}

}  // namespace

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
  const X509Owner leaf = parsed(identity.leaf.der());
  const CmsOwner message(CMS_sign(nullptr, nullptr, nullptr, nullptr, flags));
  if (!leaf || !message ||
      CMS_add1_signer(message.get(), leaf.get(), key.get(), digest, flags) == nullptr) {
    return failed(opensslReason());
  }
  for (const std::string& der : identity.chain) {
    if (const X509Owner issuer = parsed(der)) CMS_add1_cert(message.get(), issuer.get());
  }
  const BioOwner from = readingFrom(content);
  if (CMS_final(message.get(), from.get(), nullptr, flags) != 1) return failed(opensslReason());
  return encoded([&](unsigned char** out) { return i2d_CMS_ContentInfo(message.get(), out); });
}

}  // namespace tovrek::security
