// The entitlements of the new signature, and the app's new identifier.
#include <fmt/format.h>

#include <algorithm>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "converter/wrap_run.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "package/keychain_groups.h"
#include "package/signed_entitlements.h"
#include "profile/ProvisioningProfile.h"
#include "tools/tool_run.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr char kApplicationIdentifier[] = "application-identifier";
constexpr char kKeychainGroups[] = "keychain-access-groups";
constexpr char kAppGroups[] = "com.apple.security.application-groups";
constexpr char kAssociatedDomains[] = "com.apple.developer.associated-domains";
constexpr char kBetaReports[] = "beta-reports-active";
constexpr char kICloudServices[] = "com.apple.developer.icloud-services";
constexpr char kICloudEnvironment[] = "com.apple.developer.icloud-container-environment";
constexpr const char* kICloudIdentifiers[] = {
    "com.apple.developer.icloud-container-development-container-identifiers",
    "com.apple.developer.icloud-container-identifiers",
    "com.apple.developer.ubiquity-kvstore-identifier"};

// What codesign extracts from the old signature goes into this file of the app.
constexpr char kOldEntitlements[] = "orig-entitlements.plist";

// The group through which the management library shares data between apps.
constexpr char kManagementGroup[] = "com.orvane.wex";

using OptionalDictionary = std::optional<PlistDictionary>;

bool isWildcard(std::string_view identifier) {
  return identifier.find(".*") != std::string_view::npos;
}

bool holdsKey(const OptionalDictionary& dictionary, std::string_view key) {
  return dictionary && dictionary->contains(key);
}

std::optional<std::string> stringIn(const OptionalDictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary ? stringForKey(*dictionary, key) : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

PlistValue::Array listIn(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue::Array* list = arrayForKey(dictionary, key);
  return list ? *list : PlistValue::Array();
}

bool holdsText(const PlistValue::Array& list, const std::string& text) {
  return std::any_of(list.begin(), list.end(), [&](const PlistValue& entry) {
    return entry.string() && *entry.string() == text;
  });
}

// A wildcard profile leaves the bundle part open; an upgrade keeps all of the profile's part.
std::string newApplicationIdentifier(const std::string& profileAppId, const std::string& prefix,
                                     const AppConverterParam& param) {
  if (!isWildcard(profileAppId)) return profileAppId;
  const std::string bundleId = shown(param.replacementBundleID);
  if (!param.preserveUpgradeCompatibility) return prefix + "." + bundleId;
  return profileAppId.substr(0, profileAppId.size() - 1) + bundleId;
}

// The entitlements of the app's existing signature. Their file stays in the app; one of an
// earlier run serves when the signature is gone.
OptionalDictionary readOldEntitlements(const std::string& appPath) {
  const std::string path = joinPath(appPath, kOldEntitlements);
  // The tool would write through a link that came with the app.
  if (isSymbolicLink(path)) removeItem(path);
  const int status = runTool({"/usr/bin/codesign", "-d", "--entitlements", ":" + path, appPath});
  logger().logDetailed("Existing entitlement data is written into: " + path);
  if (status != 0) {
    logger().logWarning("Code signature may not exist. Using all default to resign the app.");
  }
  return isPlainFile(path) ? readPlistDictionary(path) : std::nullopt;
}

void keepAssociatedDomains(const OptionalDictionary& old, PlistDictionary* entitlements) {
  const PlistValue* domains = old ? old->find(kAssociatedDomains) : nullptr;
  if (domains && entitlements->contains(kAssociatedDomains)) {
    entitlements->set(kAssociatedDomains, *domains);
  }
}

void warnOfMissingEntitlements(const OptionalDictionary& old, const PlistDictionary& profile,
                               ErrorText* error) {
  if (!old) return;
  for (const auto& [key, value] : *old) {
    if (key == kBetaReports || profile.contains(key)) continue;
    logger().logWarning(fmt::format(
        "WARNING: Missing a required entitlement ({}) in the specified provisioning profile.",
        key));
    fail(error,
         "Your mobile app was created successfully. However, your provisioning profile does not "
         "include entitlements required by the app. The app might not function properly. See the "
         "log file for details.");
  }
}

void completeKeychainGroups(const std::string& newAppId, const std::string& teamPrefix,
                            bool isExplicit, PlistDictionary* entitlements) {
  PlistValue::Array groups = listIn(*entitlements, kKeychainGroups);
  const bool hasOwn = std::any_of(groups.begin(), groups.end(), [&](const PlistValue& group) {
    return group.string() && equalsIgnoringCase(*group.string(), newAppId);
  });
  if (!hasOwn) {
    logger().logDetailed(fmt::format(
        "Local keychain access entitlement for new AppID ({}) is not present - adding it",
        newAppId));
    groups.emplace_back(newAppId);
  }
  groups.emplace_back(teamPrefix + "." + kManagementGroup);
  if (isExplicit) groups.emplace_back(teamPrefix + ".*");
  for (const PlistValue& group : listIn(*entitlements, kAppGroups)) {
    if (group.string()) groups.emplace_back(teamPrefix + "." + *group.string());
  }
  entitlements->set(kKeychainGroups, std::move(groups));
}

void fitICloud(const OptionalDictionary& old, PlistDictionary* entitlements) {
  for (const char* key : kICloudIdentifiers) {
    if (!holdsKey(old, key)) entitlements->remove(key);
  }
  entitlements->remove(kICloudEnvironment);
  if (holdsKey(old, kICloudServices)) {
    entitlements->set(kICloudServices, *old->find(kICloudServices));
  }
}

// Re-points everything from the old team to the new one: in the text as a whole, so that
// identifiers inside of other values move along.
std::string repointPrefix(const std::string& xml, const std::optional<std::string>& oldPrefix,
                          const std::string& teamPrefix) {
  logger().logDetailed(fmt::format("Replacing {} to {}", shown(oldPrefix), teamPrefix));
  const bool bothPresent = !isEmpty(oldPrefix) && !teamPrefix.empty();
  std::string result = bothPresent ? replaceAll(xml, *oldPrefix, teamPrefix) : xml;
  logger().logDetailed("Final entitlement XML after string replacement is " + result);
  return result;
}

// The "Entitlements" of a profile saved as a property list.
OptionalDictionary readProfileEntitlements(const std::string& profilePath, ErrorText* error) {
  const auto profile = readPlistDictionary(profilePath);
  if (!profile) {
    logger().logError(
        "GenerateEntitlement: Failed to read provisioning profile into NSDictionary.");
    fail(error, "ERROR: Failed to read provisioning profile.");
    return std::nullopt;
  }
  const PlistDictionary* entitlements = dictionaryForKey(*profile, "Entitlements");
  if (!entitlements) {
    logger().logError(
        "GenerateEntitlement: provisioning profile may not contain any entitlement data.");
    fail(error, "ERROR: Provisioning profile is missing entitlement data.");
    return std::nullopt;
  }
  return *entitlements;
}

bool writeEntitlements(const std::string& path, const std::string& xml, ErrorText* error) {
  if (!writeFileAtomically(path, xml, error)) return false;
  logger().logDetailed("new entitlement data is written into :" + path);
  return true;
}

// The groups that wrapping adds are there from the last time; without this every renewal would
// make the list longer.
bool dropRepeatedGroups(const std::string& path, ErrorText* error) {
  auto entitlements = readPlistDictionary(path);
  if (!entitlements) return true;
  PlistValue::Array groups;
  for (PlistValue& group : listIn(*entitlements, kKeychainGroups)) {
    if (std::find(groups.begin(), groups.end(), group) == groups.end()) {
      groups.push_back(std::move(group));
    }
  }
  entitlements->set(kKeychainGroups, std::move(groups));
  return writeFileAtomically(path, serializePlist(*entitlements, PlistFormat::kXml), error);
}

}  // namespace

bool AppConverter::generateNewEntitlement(std::string* entitlementPath,
                                          const std::optional<PlistDictionary>& profileData,
                                          const std::string& targetDir, const std::string& appPath,
                                          ErrorText* error) {
  if (!profileData) return false;
  const std::string profilePath = joinPath(targetDir, "provisiongprofile.plist");
  const bool written = writePlist(profilePath, *profileData, PlistFormat::kXml);
  systemLog(fmt::format("tempDir: {} \nprofilePath: {}", targetDir, profilePath));
  if (!written) return fail(error, "ERROR: Failed to decode provisioning profile.");
  *entitlementPath = joinPath(targetDir, "new-entitlement.plist");
  return GenerateEntitlement(*entitlementPath, profilePath, appPath, error);
}

bool AppConverter::makeEntitlements(WrapRun* run, ErrorText* error) {
  // What wrapping left behind would be taken for the app's, or be added to; the signature tells
  // what the app has now.
  const std::string left = joinPath(run->appPath, kOldEntitlements);
  if (run->isRenewal && itemExistsNoFollow(left) && signedEntitlements(run->appPath)) {
    removeItem(left);
  }
  return generateNewEntitlement(&run->entitlementPath, run->profile, run->directory->tempDir(),
                                run->appPath, error) &&
         (!run->isRenewal || dropRepeatedGroups(run->entitlementPath, error));
}

bool AppConverter::GenerateEntitlement(const std::string& targetPath,
                                       const std::string& profilePath, const std::string& appPath,
                                       ErrorText* error) {
  const OptionalDictionary profile = readProfileEntitlements(profilePath, error);
  if (!profile) return false;
  if (!ProvisioningProfile::validateProfileWithPList(
          *profile, converterParam_.replacementBundleID.value_or(""),
          converterParam_.preserveUpgradeCompatibility, error)) {
    return false;
  }
  ProvisioningProfile::validateProfileWithDataProtection(*profile, error);
  ProvisioningProfile::validateProfileWithTeamIdentifier(*profile, error);

  const std::string profileAppId = stringForKeyOr(*profile, kApplicationIdentifier, "");
  const std::string teamPrefix = prefixOf(profileAppId);
  systemLog(fmt::format("new bundle seed ID: {}, teamIdFromProfile: {}", profileAppId, teamPrefix));
  const std::string newAppId = newApplicationIdentifier(profileAppId, teamPrefix, converterParam_);
  logger().logDetailed("newAppID: " + newAppId);

  const OptionalDictionary old = readOldEntitlements(appPath);
  const auto oldAppId = stringIn(old, kApplicationIdentifier);
  const auto oldPrefix = oldAppId ? std::optional(prefixOf(*oldAppId)) : std::nullopt;

  PlistDictionary entitlements = *profile;
  keepAssociatedDomains(old, &entitlements);
  warnOfMissingEntitlements(old, *profile, error);
  MergeAppIDGroupsWithOldEntitlement(old, &entitlements, kKeychainGroups, oldAppId, oldPrefix,
                                     newAppId);
  completeKeychainGroups(newAppId, teamPrefix, !isWildcard(profileAppId), &entitlements);
  entitlements.set(kApplicationIdentifier, newAppId);
  fitICloud(old, &entitlements);

  logger().logBasic("Fixing appID in the new entitlement string...");
  const std::string xml = generatePlistXMLStringFromDictionary(entitlements);
  logger().logDetailed("new entitlement XML is " + xml);
  return writeEntitlements(targetPath, repointPrefix(xml, oldPrefix, teamPrefix), error);
}

void AppConverter::MergeAppIDGroupsWithOldEntitlement(
    const std::optional<PlistDictionary>& oldEntitlements, PlistDictionary* newEntitlements,
    const std::string& key, const std::optional<std::string>& oldAppId,
    const std::optional<std::string>& oldAppIdPrefix, const std::string& newAppId) {
  const PlistValue::Array* oldList = oldEntitlements ? arrayForKey(*oldEntitlements, key) : nullptr;
  if (!oldList) {
    PlistValue::Array list = listIn(*newEntitlements, key);
    const auto wildcard = std::find_if(list.begin(), list.end(), [](const PlistValue& entry) {
      return entry.string() && isWildcard(*entry.string());
    });
    if (wildcard != list.end()) {
      list.erase(wildcard);
      list.emplace_back(newAppId);
    }
    newEntitlements->set(key, std::move(list));
    return;
  }

  // The old entries keep their prefix here: the whole text is re-pointed in the end.
  PlistValue::Array list = *oldList;
  const bool holdsOwn = oldAppId && oldAppIdPrefix &&
                        (holdsText(list, *oldAppId) || holdsText(list, *oldAppIdPrefix + ".*"));
  if (!holdsOwn) {
    logger().logWarning(fmt::format(
        "WARNING: Existing entitlement in code signature does not contain its own app ID in {}. "
        "Orvane requires to access the app's own keychain. Adding this missing entitlement.",
        key));
    list.emplace_back(newAppId);
  }
  newEntitlements->set(key, std::move(list));
}

std::string AppConverter::generatePlistXMLStringFromDictionary(const PlistDictionary& dictionary) {
  return serializePlist(dictionary, PlistFormat::kXml);
}

bool AppConverter::doAppBundleIDChange(const std::optional<std::string>& bundleId,
                                       const std::string& payloadDir) {
  const auto plist = infoPlistPathFromAppPath(payloadDir);
  // The entry may be another one than the app at hand, and a link.
  if (!plist || !liesInside(containingFolder(*plist), payloadDir)) return false;
  return changeBundleIDForFile(*plist, "CFBundleIdentifier", bundleId, PlistFormat::kBinary);
}

std::optional<std::string> AppConverter::infoPlistPathFromAppPath(const std::string& folder) {
  if (folder.empty()) return std::nullopt;
  const auto names = listDirectory(folder);
  if (!names) return std::nullopt;
  const auto app = std::find_if(names->begin(), names->end(), [](const std::string& name) {
    return toLowerAscii(pathExtension(name)) == "app";
  });
  if (app == names->end()) return std::nullopt;
  return joinPath(joinPath(folder, *app), "Info.plist");
}

bool AppConverter::changeBundleIDForFile(const std::string& plistPath,
                                         const std::string& bundleIdKey,
                                         const std::optional<std::string>& newBundleId,
                                         PlistFormat format) {
  if (!newBundleId || !fileExists(plistPath)) return false;
  auto plist = readPlistDictionary(plistPath);
  if (!plist) return false;
  if (const PlistValue* old = plist->find(bundleIdKey)) {
    plist->set("WEX" + bundleIdKey, PlistValue(*old));
  }
  plist->set(bundleIdKey, *newBundleId);
  return writePlist(plistPath, *plist, format);
}

bool AppConverter::checkWexKeychainEntitlementInFile(const std::string& path, ErrorText* error) {
  if (checkKeychainAccessGroup(kManagementGroup, path, error, Global_ManifestLib_logger()))
    return true;
  warnIfEmpty(error,
              fmt::format("ERROR: Missing a required keychain access group {} for this app. Please "
                          "ensure you add this keychain access group in your app's Keychain Groups "
                          "area in Capabilities pane.",
                          kManagementGroup));
  return false;
}

}  // namespace tovrek
