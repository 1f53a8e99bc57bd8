// Code requirements: conditions over a signature, compiled to a prefix expression of 32-bit words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "signing/CertificateChain.h"
#include "signing/SuperBlob.h"

namespace tovrek::signing {

// What follows an operator.
enum class RequirementOperands {
  kNone,
  kKey,
  kKeyAndValue,
  kKeyAndMatch,
  kSlot,
  kSlotAndKey,
  kSlotKeyAndMatch,
  kNumber,
  kOneExpression,
  kTwoExpressions
};
// None for an operator that is not known.
std::optional<RequirementOperands> operandsOf(RequirementOp op);

// The set that a signature gets when the user states none: one designated requirement, by which
// later versions from the same signer are known as the same code. Ad-hoc signatures (an empty
// chain) get an empty set.
std::string defaultRequirementSet(std::string_view identifier, const CertificateChain& chain);
// A set that the user or an older signature gave, with the designated requirement of the default
// added when it states none. Whoever wants none says "designated => never".
std::string withDesignatedRequirement(std::string set, std::string_view identifier,
                                      const CertificateChain& chain);

// The content octets of a dotted object identifier; empty when the text is none.
std::string oidContents(const std::string& dotted);
// The dotted form of content octets.
std::string oidText(std::string_view contents);

// A requirement (a whole blob) as text. Damaged ones end in "/* malformed */".
std::string requirementText(std::string_view requirement);
// One line "designated => ..." per entry of a set.
std::string requirementSetText(std::string_view set);

}  // namespace tovrek::signing
