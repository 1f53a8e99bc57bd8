// Code requirements: conditions over a signature, compiled to a prefix expression of 32-bit words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "signing/CertificateChain.h"
#include "signing/SuperBlob.h"

namespace tovrek::signing {

// Operators of the expression, with what follows each.
enum class RequirementOp : uint32_t {
  kFalse = 0,
  kTrue = 1,
  kIdentifier = 2,           // string
  kAppleAnchor = 3,          // -
  kAnchorHash = 4,           // certificate, SHA-1
  kInfoKeyValue = 5,         // key, value
  kAnd = 6,                  // two expressions
  kOr = 7,                   // two expressions
  kCdHash = 8,               // hash
  kNot = 9,                  // expression
  kInfoKeyField = 10,        // key, match
  kCertificateField = 11,    // certificate, field, match
  kTrustedCertificate = 12,  // certificate
  kTrustedCertificates = 13,
  kCertificateGeneric = 14,  // certificate, object identifier, match
  kAppleGenericAnchor = 15,
  kEntitlementField = 16,   // key, match
  kCertificatePolicy = 17,  // certificate, object identifier, match
  kNamedAnchor = 18,        // string
  kNamedCode = 19,          // string
  kPlatform = 20,           // number
  kNotarized = 21,
  kCertificateDate = 22,  // certificate, object identifier, match
  kLegacy = 23,
};

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

enum class RequirementMatch : uint32_t {
  kExists = 0,
  kEqual = 1,
  kContains = 2,
  kBeginsWith = 3,
  kEndsWith = 4,
  kLessThan = 5,
  kGreaterThan = 6,
  kLessEqual = 7,
  kGreaterEqual = 8,
  kOn = 9,
  kBefore = 10,
  kAfter = 11,
  kOnOrBefore = 12,
  kOnOrAfter = 13,
  kAbsent = 14
};

// Types of the entries in a requirement set.
inline constexpr uint32_t kDesignatedRequirement = 3;
inline constexpr const char* kRequirementTypes[] = {"",           "host",    "guest",
                                                    "designated", "library", "plugin"};

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
