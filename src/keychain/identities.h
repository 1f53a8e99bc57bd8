// Choosing an identity by what a user wrote, and finding the certificates above it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "keychain/Keychain.h"

namespace tovrek::keychain {

enum class Lookup {
  kFound,
  kNotFound,
  kAmbiguous,
  kNoPrivateKey,   // a certificate matches, its key is not there
  kExpired,        // also: not valid yet
  kNotForSigning,  // the certificate's key usage excludes signing code
  kKeyNotUsable,   // the keychain is locked, or the token does not give the key
  kNoChain,        // an issuer's certificate is missing, or none of its generations is valid now
};

struct LookupResult {
  Lookup outcome = Lookup::kNotFound;
  std::optional<Identity> identity;  // with its chain, for kFound only
  // For a failure: "NAME: no identity found", "NAME: ambiguous (matches "A" and "B" in KC)",
  // "NAME: this identity cannot be used for signing code" or "NAME: errSecInternalComponent". For
  // kNoChain it is the signer's name alone.
  std::string text;
  // A second sentence that tells the user why, for outcomes whose text does not; else empty.
  std::string detail;
};

// `name` is 40 hexadecimal digits (SHA-1 of the leaf), "*" for the first identity, else a part of
// a common name in any case, where an exact match is preferred. Identities that cannot sign now
// count only when no other matches. One certificate in two keychains is one match.
LookupResult findSigningIdentity(const std::vector<Keychain>& keychains, std::string_view name);

// The issuers of `leaf` upwards, chosen by the authority key identifier, then by name. Among
// several the one that is valid now and ends last wins. Where the keychains have none that will do,
// the host's own certificates are searched, see authorities.h.
std::vector<Certificate> completeChain(const std::vector<Keychain>& keychains,
                                       const Certificate& leaf);

// Null when `chain` leads from `leaf` to a self-signed root by way of intermediates that are valid
// now; else the certificate whose issuer is missing or has expired.
const Certificate* chainEnd(const Certificate& leaf, const std::vector<Certificate>& chain);

// Whether the current time lies in the certificate's validity.
bool isValidNow(const Certificate& certificate);

}  // namespace tovrek::keychain
