// Signed attributes that are not in the order of DER.
#pragma once

#include <string_view>

#include "signing/CmsSignature.h"

namespace tovrek::signing {

// Whether the signer of `cms` signed its attributes byte by byte as they stand in `encoded`, which
// `cms` was read from, and they vouch for `content`. The library sorts the values of an attribute
// before it judges; some signers hash them in the order in which they wrote them.
bool isSignedAsWritten(const CmsSignature& cms, std::string_view encoded, std::string_view content);

}  // namespace tovrek::signing
