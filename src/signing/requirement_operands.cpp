// What follows each operator of a compiled requirement.
#include <iterator>

#include "signing/requirements.h"

namespace tovrek::signing {

std::optional<RequirementOperands> operandsOf(RequirementOp op) {
  using enum RequirementOperands;
  // In the order of the operators' numbers.
  constexpr RequirementOperands kOperands[] = {kNone,
                                               kNone,
                                               kKey,
                                               kNone,
                                               kSlotAndKey,
                                               kKeyAndValue,
                                               kTwoExpressions,
                                               kTwoExpressions,
                                               kKey,
                                               kOneExpression,
                                               kKeyAndMatch,
                                               kSlotKeyAndMatch,
                                               kSlot,
                                               kNone,
                                               kSlotKeyAndMatch,
                                               kNone,
                                               kKeyAndMatch,
                                               kSlotKeyAndMatch,
                                               kKey,
                                               kKey,
                                               kNumber,
                                               kNone,
                                               kSlotKeyAndMatch,
                                               kNone};
  static_assert(std::size(kOperands) == static_cast<size_t>(RequirementOp::kLegacy) + 1);
  const auto number = static_cast<size_t>(op);
  if (number >= std::size(kOperands)) return std::nullopt;
  return kOperands[number];
}

}  // namespace tovrek::signing
