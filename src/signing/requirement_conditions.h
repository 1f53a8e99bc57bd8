// The conditions of the requirement language that hold no other conditions.
#pragma once

#include "signing/RequirementExpression.h"
#include "signing/RequirementTokens.h"

namespace tovrek::signing {

// Parses one condition, such as: anchor apple generic. Certificates named by a path are read.
// False, with the error in the tokens' slot, for what is none.
bool parseCondition(RequirementTokens* tokens, RequirementExpression* out);

}  // namespace tovrek::signing
