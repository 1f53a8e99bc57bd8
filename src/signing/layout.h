// The numbers of the signature format: blobs, slots of the index, flags of the code directory and
// words of compiled requirements.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tovrek::signing {

// Every blob starts with its magic and its length in bytes, those eight included.
enum BlobMagic : uint32_t {
  kRequirementMagic = 0xfade0c00,
  kRequirementSetMagic = 0xfade0c01,
  kCodeDirectoryMagic = 0xfade0c02,
  kEmbeddedSignatureMagic = 0xfade0cc0,
  kEntitlementsMagic = 0xfade7171,
  kDerEntitlementsMagic = 0xfade7172,
  kWrapperMagic = 0xfade0b01
};
inline constexpr size_t kBlobHeaderSize = 8;

// What a blob is to the signature. Slots 1 to 11 are sealed by hashes in the code directory.
enum Slot : uint32_t {
  kCodeDirectorySlot = 0,
  kInfoPlistSlot = 1,
  kRequirementsSlot = 2,
  kResourcesSlot = 3,
  kEntitlementsSlot = 5,
  kDerEntitlementsSlot = 7,
  kLastSpecialSlot = 11,
  kAlternateCodeDirectorySlot = 0x1000,
  kLastAlternateCodeDirectorySlot = 0x1004,
  kCmsSlot = 0x10000
};

enum CodeDirectoryFlags : uint32_t {
  kHostFlag = 0x1,
  kAdhocFlag = 0x2,
  kRuntimeFlag = 0x10000,
  kLinkerSignedFlag = 0x20000
};

enum ExecSegFlags : uint64_t {
  kExecSegMainBinary = 0x1,
  kExecSegAllowUnsigned = 0x10,
  kExecSegDebugger = 0x20,
  kExecSegJit = 0x40,
  kExecSegSkipLibraryValidation = 0x80,
  kExecSegCanLoadCdHash = 0x100,
  kExecSegCanExecCdHash = 0x200
};

// Versions of a code directory's header: the bounds, and the first with the field of that name.
struct CodeDirectoryVersion {
  static constexpr uint32_t kOldest = 0x20001, kNewest = 0x2f000;
  static constexpr uint32_t kScatter = 0x20100, kTeam = 0x20200, kCodeLimit64 = 0x20300,
                            kExecSeg = 0x20400, kRuntime = 0x20500;
};

// Of a compiled requirement: its kind, and what stands beside an operator in its word, among it
// what an operator means to who does not know it.
inline constexpr uint32_t kUnknownIsFalse = 0x80000000;
inline constexpr uint32_t kUnknownIsSkipped = 0x40000000;
inline constexpr uint32_t kOperatorBits = 0x00ffffff;
inline constexpr uint32_t kExpressionKind = 1;

// Operators of a compiled requirement, with what follows each.
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

// How a requirement compares a value.
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

}  // namespace tovrek::signing
