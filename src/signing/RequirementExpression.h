// A compiled requirement as a tree.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "signing/requirements.h"

namespace tovrek::signing {

// Operators that may stand one inside the other. No sensible requirement comes near; a chain of
// "and" or "or" counts one for each.
inline constexpr int kDeepestRequirement = 500;

struct RequirementExpression {
  RequirementOp op = RequirementOp::kFalse;
  int32_t certificate = 0;  // slot: 0 leaf, -1 root
  std::string key;          // string, key, field, hash or object identifier, as the operator has it
  std::string value;        // value of a match, or of kInfoKeyValue
  RequirementMatch match = RequirementMatch::kExists;
  int64_t date = 0;     // of a date match: seconds since 2001-01-01 UTC
  uint32_t number = 0;  // of kPlatform
  std::vector<RequirementExpression> operands;

  // Parses a whole requirement blob. Refuses what is cut short, nested deeper than any sensible
  // requirement, or holds an operator that is not known and not marked as skippable. Unknown
  // operators marked as skippable become "never".
  static std::optional<RequirementExpression> parse(std::string_view blob,
                                                    ErrorText* error = nullptr);
  // In the language of requirements.
  std::string text() const;
  // Compiled: a whole requirement blob.
  std::string blob() const;
};

}  // namespace tovrek::signing
