// What follows each operator of a compiled requirement.
#include "signing/requirements.h"

namespace tovrek::signing {

std::optional<RequirementOperands> operandsOf(RequirementOp op) {
  switch (op) {
    case RequirementOp::kFalse:
    case RequirementOp::kTrue:
    case RequirementOp::kAppleAnchor:
    case RequirementOp::kAppleGenericAnchor:
    case RequirementOp::kTrustedCertificates:
    case RequirementOp::kNotarized:
    case RequirementOp::kLegacy:
      return RequirementOperands::kNone;
    case RequirementOp::kIdentifier:
    case RequirementOp::kCdHash:
    case RequirementOp::kNamedAnchor:
    case RequirementOp::kNamedCode:
      return RequirementOperands::kKey;
    case RequirementOp::kAnchorHash:
      return RequirementOperands::kSlotAndKey;
    case RequirementOp::kInfoKeyValue:
      return RequirementOperands::kKeyAndValue;
    case RequirementOp::kAnd:
    case RequirementOp::kOr:
      return RequirementOperands::kTwoExpressions;
    case RequirementOp::kNot:
      return RequirementOperands::kOneExpression;
    case RequirementOp::kInfoKeyField:
    case RequirementOp::kEntitlementField:
      return RequirementOperands::kKeyAndMatch;
    case RequirementOp::kCertificateField:
    case RequirementOp::kCertificateGeneric:
    case RequirementOp::kCertificatePolicy:
    case RequirementOp::kCertificateDate:
      return RequirementOperands::kSlotKeyAndMatch;
    case RequirementOp::kTrustedCertificate:
      return RequirementOperands::kSlot;
    case RequirementOp::kPlatform:
      return RequirementOperands::kNumber;
  }
  return std::nullopt;
}

}  // namespace tovrek::signing
