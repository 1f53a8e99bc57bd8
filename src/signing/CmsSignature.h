// The cryptographic part of a signature: a detached CMS SignedData (RFC 5652) over the primary
// code directory, with attributes that name all code directories.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/openssl_owners.h"
#include "host/ErrorText.h"
#include "signing/CertificateChain.h"
#include "signing/CodeDirectory.h"
#include "signing/KnownCertificates.h"
#include "signing/SigningIdentity.h"
#include "signing/timestamp.h"

namespace tovrek::signing {

// DER of a CMS over directories.front(). None, with the reason, when the key cannot sign.
std::optional<std::string> makeCms(const SigningIdentity& identity,
                                   const std::vector<CodeDirectory>& directories, ErrorText* error);

// The property list that names the code directories by their hashes, in the exact text that
// signatures carry.
std::string cdHashesPlist(const std::vector<CodeDirectory>& directories);

// A parsed CMS of a signature.
class CmsSignature {
 public:
  // From BER or DER. Needs one signer whose certificate is among those enclosed.
  static std::optional<CmsSignature> parse(std::string_view bytes, ErrorText* error = nullptr);
  // The same, with certificates taken from what was read before and left there for the next.
  static std::optional<CmsSignature> parse(std::string_view bytes, KnownCertificates* known);

  const CertificateChain& chain() const { return chain_; }
  // The message itself, with the signer's certificate set.
  CMS_ContentInfo* message() const { return cms_.get(); }
  // The signer's claim when it signed, in seconds since 1970; none without that attribute.
  std::optional<double> signingTime() const { return signingTime_; }
  // What an authority says about the time; none without its stamp.
  const std::optional<Timestamp>& timestamp() const { return timestamp_; }
  // The only value of the attribute that names the directories as a property list.
  const std::optional<std::string>& cdHashesAttribute() const { return cdHashes_; }
  // Digest object identifier (contents octets) and hash of each directory; none without it.
  struct NamedHash {
    std::string oid;
    std::string hash;
  };
  const std::optional<std::vector<NamedHash>>& namedHashes() const { return namedHashes_; }
  // Whether the signature is right over `content` with the enclosed certificate. Says nothing of
  // the chain.
  bool isSignatureOver(std::string_view content, ErrorText* error = nullptr) const;

 private:
  // `known` may be null.
  bool readSigner(KnownCertificates::Set* known, ErrorText* error);
  bool decode(std::string_view bytes);

  std::shared_ptr<CMS_ContentInfo> cms_;
  CertificateChain chain_;
  std::optional<double> signingTime_;
  std::optional<Timestamp> timestamp_;
  std::optional<std::string> cdHashes_;
  std::optional<std::vector<NamedHash>> namedHashes_;
};

}  // namespace tovrek::signing
