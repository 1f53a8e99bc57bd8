// Certificates and private keys out of a file's bytes: PEM (RFC 7468), DER, PKCS#12 (RFC 7292).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "keychain/Keychain.h"

namespace tovrek::keychain {

enum class ReadResult {
  kRead,
  kUnknownFormat,  // neither certificate nor key in it
  kWrongPassword,  // or none given where one is needed
  kUnsupported,    // encrypted in a way that this host's OpenSSL cannot undo
  kTooCostly,      // wants a password turned round more than ten million times
};

// Appends what the bytes hold to `items`; the format is recognised by the content. Without a
// password, PKCS#12 is tried with none and with an empty one. After a failure `items` has what
// could be read, such as the certificates beside an encrypted key.
ReadResult readItems(std::string_view bytes, const std::optional<std::string>& password,
                     Items* items);

// readItems() for PKCS#12 alone. kUnknownFormat when the bytes are something else.
ReadResult readPkcs12(std::string_view bytes, const std::optional<std::string>& password,
                      Items* items);

// The certificates and keys as PKCS#12, encrypted with AES-256 and guarded by a MAC with SHA-256.
// Empty when there are none or when a key cannot be written, as one on a token.
std::string writePkcs12(const Items& items, const std::string& password);

}  // namespace tovrek::keychain
