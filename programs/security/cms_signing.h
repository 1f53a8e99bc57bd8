// Making signed messages.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "keychain/Keychain.h"

namespace tovrek::security {

struct CmsOptions {
  std::string digest = "SHA256";  // by OpenSSL's name
  bool detached = false;          // the content stays outside the message
};

// A signed message (RFC 5652) in DER, with the identity's chain and the signing time. None, with
// the reason, when the key cannot be had or cannot sign.
std::optional<std::string> signedMessage(std::string_view content,
                                         const keychain::Identity& identity,
                                         const CmsOptions& options, ErrorText* error);

}  // namespace tovrek::security
