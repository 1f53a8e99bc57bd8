// The time stamp that an authority put on a signature (RFC 3161), carried as an unsigned attribute.
#pragma once

#include <openssl/cms.h>

#include <optional>

namespace tovrek::signing {

struct Timestamp {
  double time = 0;       // seconds since 1970
  bool isRight = false;  // made over this very signature, and unchanged since
};

// None without the attribute. A damaged one gives a Timestamp that is not right.
std::optional<Timestamp> timestampOf(CMS_SignerInfo* signer);

}  // namespace tovrek::signing
