// Whether both forms of the entitlements say the same.
#pragma once

#include "signing/CodeSignature.h"

namespace tovrek::signing {

// Systems read either the property list or the DER form, so a difference would give code other
// rights on one than on another. True where there is no DER form.
bool areEntitlementsConsistent(const CodeSignature& signature);

}  // namespace tovrek::signing
