// Whether code satisfies a requirement.
#pragma once

#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "signing/CertificateChain.h"
#include "signing/RequirementExpression.h"

namespace tovrek::signing {

// What requirements can ask about.
struct RequirementContext {
  std::string identifier;
  PlistDictionary info;
  PlistDictionary entitlements;
  CertificateChain chain;
  std::vector<std::string> cdHashes;
  uint32_t platform = 0;
};

// Questions about trust settings, notarisation and revocation, which this host knows nothing of,
// are answered by no.
bool satisfies(const RequirementContext& context, const RequirementExpression& requirement);

}  // namespace tovrek::signing
