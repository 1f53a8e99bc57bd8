// Who signs.
#pragma once

#include <openssl/types.h>

#include <memory>
#include <string>
#include <vector>

#include "signing/CertificateChain.h"

namespace tovrek::signing {

// A certificate chain and the private key of its leaf. An identity without a key makes ad-hoc
// signatures: hashes only, no signer.
struct SigningIdentity {
  CertificateChain chain;
  std::shared_ptr<EVP_PKEY> key;

  bool isAdhoc() const { return key == nullptr; }
};

}  // namespace tovrek::signing
