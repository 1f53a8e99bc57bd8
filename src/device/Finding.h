// What a device's installer would say about an app, as plain data.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tovrek::device {

// One point that does not hold. Codes keep their names: scripts may rely on them.
struct Finding {
  std::string_view code;  // one of the constants below
  std::string place;      // path from the folder that the app lies in, "Small.app/PlugIns/A.appex"
  std::string reason;     // starts in lower case, ends without a full stop
  // False for what an installer takes with limits, which users should know of.
  bool isRefused = true;
};
using Findings = std::vector<Finding>;

// --- The signature ---
inline constexpr std::string_view kSignatureMissing = "signature-missing";
inline constexpr std::string_view kSignatureAdhoc = "signature-adhoc";      // signed by nobody
inline constexpr std::string_view kSignatureInvalid = "signature-invalid";  // pages, seals, message
inline constexpr std::string_view kChainIncomplete = "chain-incomplete";
inline constexpr std::string_view kChainNotTrusted = "chain-not-trusted";
inline constexpr std::string_view kCertificateDates = "certificate-dates";
inline constexpr std::string_view kCertificatePurpose = "certificate-purpose";
inline constexpr std::string_view kTeamMismatch = "team-mismatch";
// --- The provisioning profile ---
inline constexpr std::string_view kProfileMissing = "profile-missing";
inline constexpr std::string_view kProfileUnreadable = "profile-unreadable";
inline constexpr std::string_view kProfileDates = "profile-dates";
inline constexpr std::string_view kProfilePlatform = "profile-platform";
inline constexpr std::string_view kProfileStore = "profile-store";
inline constexpr std::string_view kProfileDevices = "profile-devices";  // not refused, but limited
inline constexpr std::string_view kProfileDevelopment = "profile-development";  // the same
inline constexpr std::string_view kIdentifierNotInProfile = "identifier-not-in-profile";
inline constexpr std::string_view kCertificateNotInProfile = "certificate-not-in-profile";
// --- Entitlements and identifiers ---
inline constexpr std::string_view kEntitlementsMissing = "entitlements-missing";
inline constexpr std::string_view kEntitlementNotGranted = "entitlement-not-granted";
inline constexpr std::string_view kIdentifierMissing = "identifier-missing";
inline constexpr std::string_view kIdentifierMismatch = "identifier-mismatch";
inline constexpr std::string_view kIdentifierNotBelowApp = "identifier-not-below-app";
inline constexpr std::string_view kCompanionMismatch = "companion-mismatch";

}  // namespace tovrek::device
