// Whether the signer's message vouches for the code directories.
#pragma once

#include "signing/CmsSignature.h"
#include "signing/CodeSignature.h"

namespace tovrek::signing {

// The text for a signer whose certificates do not lead to a root.
// Unverified: what the original says of a chain whose root neither the message nor the host holds.
inline constexpr const char* kNotTrusted = "CSSMERR_TP_NOT_TRUSTED";

// Null when the message is right: signed over the primary directory, naming all directories, by a
// certificate whose `chain` (the enclosed issuers, and the host's where some are missing) leads to
// a root, of the team that the directory states, and with a time stamp that fits, if any. Else what
// is wrong. Whom to trust is not judged.
const char* messageFault(const CodeSignature& signature, const CmsSignature& cms,
                         const CertificateChain& chain);

}  // namespace tovrek::signing
