// Names of entitlements, as Apple's documentation of entitlements and of profiles has them.
#pragma once

namespace tovrek::entitlement {

inline constexpr char kApplicationIdentifier[] = "application-identifier";
inline constexpr char kTeamIdentifier[] = "com.apple.developer.team-identifier";
inline constexpr char kGetTaskAllow[] = "get-task-allow";
inline constexpr char kKeychainGroups[] = "keychain-access-groups";
inline constexpr char kAppGroups[] = "com.apple.security.application-groups";
inline constexpr char kAssociatedDomains[] = "com.apple.developer.associated-domains";
inline constexpr char kBetaReports[] = "beta-reports-active";
inline constexpr char kICloudServices[] = "com.apple.developer.icloud-services";
inline constexpr char kICloudEnvironment[] = "com.apple.developer.icloud-container-environment";
inline constexpr char kICloudContainers[] = "com.apple.developer.icloud-container-identifiers";
inline constexpr char kICloudDevelopmentContainers[] =
    "com.apple.developer.icloud-container-development-container-identifiers";
inline constexpr char kKeyValueStore[] = "com.apple.developer.ubiquity-kvstore-identifier";

}  // namespace tovrek::entitlement
