#include "converter/entitlements.h"

#include <fmt/format.h>

#include <algorithm>

#include "converter/codesign_commands.h"
#include "converter/common.h"
#include "converter/steps.h"
#include "formats/entitlement_keys.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/keychain_groups.h"
#include "profile/ProvisioningProfile.h"
#include "tools/tool_run.h"

namespace tovrek::converter {
namespace {

constexpr const char* kICloudIdentifiers[] = {entitlement::kICloudDevelopmentContainers,
                                              entitlement::kICloudContainers,
                                              entitlement::kKeyValueStore};

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
                                     const Run& run) {
  if (!isWildcard(profileAppId)) return profileAppId;
  const std::string bundleId = shown(run.replacementBundleID);
  if (!run.request.preserveUpgradeCompatibility) return prefix + "." + bundleId;
  return profileAppId.substr(0, profileAppId.size() - 1) + bundleId;
}

// The entitlements of the app's existing signature. Their file stays in the app; one of an
// earlier run serves when the signature is gone, and only then: it tells of another signature.
OptionalDictionary readOldEntitlements(const WrapperLogger& log, const std::string& appPath) {
  const std::string path = joinPath(appPath, kOldEntitlements);
  std::string earlier;
  const bool hadEarlier = isPlainFile(path) && !isSymbolicLink(path) && readFile(path, &earlier);
  // The tool writes behind what a file holds already, and through a link that came with the app.
  if (hadEarlier || isSymbolicLink(path)) removeItem(path);
  const int status = runTool(log, saveEntitlementsCommand(appPath, path));
  log.logDetailed("Existing entitlement data is written into: " + path);
  if (status != 0) {
    log.logWarning("Code signature may not exist. Using all default to resign the app.");
    // Whatever the tool wrote before it failed gives way.
    if (isPlainFile(path)) removeItem(path);
    if (hadEarlier) writeFileAtomically(path, earlier);
  }
  // None at all are no fault: the signature may be without.
  if (!itemExistsNoFollow(path) || fileSize(path) == 0) return std::nullopt;
  ErrorText reason;
  auto old = readPlistDictionary(path, &reason);
  if (!old) {
    log.logWarning(fmt::format("The old entitlements in {} are not kept: {}", path, reason.text()));
    // What no one can read must not be signed into the app.
    removeItem(path);
  }
  return old;
}

void keepAssociatedDomains(const OptionalDictionary& old, PlistDictionary* entitlements) {
  const PlistValue* domains = old ? old->find(entitlement::kAssociatedDomains) : nullptr;
  if (domains && entitlements->contains(entitlement::kAssociatedDomains)) {
    entitlements->set(entitlement::kAssociatedDomains, *domains);
  }
}

void warnOfMissingEntitlements(const WrapperLogger& log, const OptionalDictionary& old,
                               const PlistDictionary& profile, ErrorText* error) {
  if (!old) return;
  for (const auto& [key, value] : *old) {
    if (key == entitlement::kBetaReports || profile.contains(key)) continue;
    log.logWarning(fmt::format(
        "WARNING: Missing a required entitlement ({}) in the specified provisioning profile.",
        key));
    fail(error,
         "Your mobile app was created successfully. However, your provisioning profile does not "
         "include entitlements required by the app. The app might not function properly. See the "
         "log file for details.");
  }
}

void completeKeychainGroups(const WrapperLogger& log, const std::string& newAppId,
                            const std::string& teamPrefix, bool isExplicit,
                            PlistDictionary* entitlements) {
  PlistValue::Array groups = listIn(*entitlements, entitlement::kKeychainGroups);
  const bool hasOwn = std::any_of(groups.begin(), groups.end(), [&](const PlistValue& group) {
    return group.string() && equalsIgnoringCase(*group.string(), newAppId);
  });
  if (!hasOwn) {
    log.logDetailed(fmt::format(
        "Local keychain access entitlement for new AppID ({}) is not present - adding it",
        newAppId));
    groups.emplace_back(newAppId);
  }
  groups.emplace_back(teamPrefix + "." + kManagementGroup);
  if (isExplicit) groups.emplace_back(teamPrefix + ".*");
  for (const PlistValue& group : listIn(*entitlements, entitlement::kAppGroups)) {
    if (group.string()) groups.emplace_back(teamPrefix + "." + *group.string());
  }
  entitlements->set(entitlement::kKeychainGroups, std::move(groups));
}

void fitICloud(const OptionalDictionary& old, PlistDictionary* entitlements) {
  for (const char* key : kICloudIdentifiers) {
    if (!holdsKey(old, key)) entitlements->remove(key);
  }
  entitlements->remove(entitlement::kICloudEnvironment);
  if (holdsKey(old, entitlement::kICloudServices)) {
    entitlements->set(entitlement::kICloudServices, *old->find(entitlement::kICloudServices));
  }
}

// A property list for the log: its lines stay, line breaks in its strings do not.
std::string shownDocument(std::string_view xml) {
  std::string result;
  while (!xml.empty()) {
    const size_t length = std::min(xml.find('<', 1), xml.size());
    const std::string_view part = xml.substr(0, length);
    const bool inString = part.starts_with("<string>") || part.starts_with("<key>");
    result += inString ? printable(part) : std::string(part);
    xml.remove_prefix(length);
  }
  return result;
}

// Re-points everything from the old team to the new one: in the text as a whole, so that
// identifiers inside of other values move along.
std::string repointPrefix(const WrapperLogger& log, const std::string& xml,
                          const std::optional<std::string>& oldPrefix,
                          const std::string& teamPrefix) {
  log.logDetailed(fmt::format("Replacing {} to {}", shown(oldPrefix), teamPrefix));
  const bool bothPresent = !isEmpty(oldPrefix) && !teamPrefix.empty();
  std::string result = bothPresent ? replaceAll(xml, *oldPrefix, teamPrefix) : xml;
  log.logDetailed("Final entitlement XML after string replacement is " + shownDocument(result),
                  LineBreaks::kKept);
  return result;
}

// The "Entitlements" of a profile saved as a property list.
OptionalDictionary readProfileEntitlements(const WrapperLogger& log, const std::string& profilePath,
                                           ErrorText* error) {
  const auto profile = readPlistDictionary(profilePath);
  if (!profile) {
    log.logError("GenerateEntitlement: Failed to read provisioning profile into NSDictionary.");
    fail(error, "ERROR: Failed to read provisioning profile.");
    return std::nullopt;
  }
  const PlistDictionary* entitlements = dictionaryForKey(*profile, "Entitlements");
  if (!entitlements) {
    log.logError("GenerateEntitlement: provisioning profile may not contain any entitlement data.");
    fail(error, "ERROR: Provisioning profile is missing entitlement data.");
    return std::nullopt;
  }
  return *entitlements;
}

bool writeEntitlements(const WrapperLogger& log, const std::string& path, const std::string& xml,
                       ErrorText* error) {
  if (!writeFileAtomically(path, xml, error)) return false;
  log.logDetailed("new entitlement data is written into :" + path);
  return true;
}

}  // namespace

bool generateNewEntitlement(const Run& run, std::string* entitlementPath,
                            const std::optional<PlistDictionary>& profileData,
                            const std::string& targetDir, const std::string& appPath,
                            ErrorText* error) {
  if (!profileData) return false;
  const std::string profilePath = joinPath(targetDir, "provisiongprofile.plist");
  const bool written = writePlist(profilePath, *profileData, PlistFormat::kXml);
  systemLog(
      fmt::format("tempDir: {} \nprofilePath: {}", printable(targetDir), printable(profilePath)),
      LineBreaks::kKept);
  if (!written) return fail(error, "ERROR: Failed to decode provisioning profile.");
  *entitlementPath = joinPath(targetDir, "new-entitlement.plist");
  return GenerateEntitlement(run, *entitlementPath, profilePath, appPath, error);
}

bool GenerateEntitlement(const Run& run, const std::string& targetPath,
                         const std::string& profilePath, const std::string& appPath,
                         ErrorText* error) {
  const WrapperLogger& log = run.log();
  const OptionalDictionary profile = readProfileEntitlements(log, profilePath, error);
  if (!profile) return false;
  if (!ProvisioningProfile::validateProfileWithPList(*profile, run.replacementBundleID.value_or(""),
                                                     run.request.preserveUpgradeCompatibility, log,
                                                     error)) {
    return false;
  }
  ProvisioningProfile::validateProfileWithDataProtection(*profile, log, error);
  ProvisioningProfile::validateProfileWithTeamIdentifier(*profile, log, error);

  const std::string profileAppId =
      stringForKeyOr(*profile, entitlement::kApplicationIdentifier, "");
  const std::string teamPrefix = prefixOf(profileAppId);
  systemLog(fmt::format("new bundle seed ID: {}, teamIdFromProfile: {}", profileAppId, teamPrefix));
  const std::string newAppId = newApplicationIdentifier(profileAppId, teamPrefix, run);
  log.logDetailed("newAppID: " + newAppId);

  const OptionalDictionary old = readOldEntitlements(log, appPath);
  const auto oldAppId = stringIn(old, entitlement::kApplicationIdentifier);
  const auto oldPrefix = oldAppId ? std::optional(prefixOf(*oldAppId)) : std::nullopt;

  PlistDictionary entitlements = *profile;
  keepAssociatedDomains(old, &entitlements);
  warnOfMissingEntitlements(log, old, *profile, error);
  MergeAppIDGroupsWithOldEntitlement(log, old, &entitlements, entitlement::kKeychainGroups,
                                     oldAppId, oldPrefix, newAppId);
  completeKeychainGroups(log, newAppId, teamPrefix, !isWildcard(profileAppId), &entitlements);
  entitlements.set(entitlement::kApplicationIdentifier, newAppId);
  fitICloud(old, &entitlements);

  log.logBasic("Fixing appID in the new entitlement string...");
  const std::string xml = generatePlistXMLStringFromDictionary(entitlements);
  log.logDetailed("new entitlement XML is " + shownDocument(xml), LineBreaks::kKept);
  return writeEntitlements(log, targetPath, repointPrefix(log, xml, oldPrefix, teamPrefix), error);
}

void MergeAppIDGroupsWithOldEntitlement(const WrapperLogger& log,
                                        const std::optional<PlistDictionary>& oldEntitlements,
                                        PlistDictionary* newEntitlements, const std::string& key,
                                        const std::optional<std::string>& oldAppId,
                                        const std::optional<std::string>& oldAppIdPrefix,
                                        const std::string& newAppId) {
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
    log.logWarning(fmt::format(
        "WARNING: Existing entitlement in code signature does not contain its own app ID in {}. "
        "Orvane requires to access the app's own keychain. Adding this missing entitlement.",
        key));
    list.emplace_back(newAppId);
  }
  newEntitlements->set(key, std::move(list));
}

std::string generatePlistXMLStringFromDictionary(const PlistDictionary& dictionary) {
  return serializePlist(dictionary, PlistFormat::kXml);
}

bool checkWexKeychainEntitlementInFile(const WrapperLogger& log, const std::string& path,
                                       ErrorText* error) {
  if (checkKeychainAccessGroup(kManagementGroup, path, error, log)) return true;
  warnIfEmpty(error,
              fmt::format("ERROR: Missing a required keychain access group {} for this app. Please "
                          "ensure you add this keychain access group in your app's Keychain Groups "
                          "area in Capabilities pane.",
                          kManagementGroup));
  return false;
}

bool readProfile(Run& run, ErrorText* error) {
  run.profile = ProvisioningProfile::extractProvisioningProfileData(
      run.request.provisionProfile.value_or(""), run.context, error);
  return true;
}

bool refuseExpiredProfile(Run& run, ErrorText* error) {
  const PlistValue* expiry = run.profile ? run.profile->find("ExpirationDate") : nullptr;
  if (!expiry || !expiry->date() || expiry->date()->secondsSince1970 >= currentTime()) return true;
  const std::string text =
      "This provisioning profile has expired. Please use a valid provisioning profile.";
  run.log().logError(text);
  return fail(error, text);
}

bool makeEntitlements(Run& run, ErrorText* error) {
  return generateNewEntitlement(run, &run.entitlementPath, run.profile, run.scratch(), run.appPath,
                                error);
}

bool dropRepeatedGroups(Run& run, ErrorText* error) {
  auto entitlements = run.isRenewal ? readPlistDictionary(run.entitlementPath) : std::nullopt;
  if (!entitlements) return true;
  PlistValue::Array groups;
  for (PlistValue& group : listIn(*entitlements, entitlement::kKeychainGroups)) {
    if (std::find(groups.begin(), groups.end(), group) == groups.end()) {
      groups.push_back(std::move(group));
    }
  }
  entitlements->set(entitlement::kKeychainGroups, std::move(groups));
  const std::string xml = serializePlist(*entitlements, PlistFormat::kXml);
  return writeFileAtomically(run.entitlementPath, xml, error);
}

bool requireManagementGroup(Run& run, ErrorText* error) {
  const auto& entitlements = run.request.entitlementsPath;
  ErrorText reason;
  if (!entitlements ||
      checkWexKeychainEntitlementInFile(run.context.loggers.manifest, *entitlements, &reason))
    return true;
  run.log().logError(reason.text());
  return fail(error, reason.text());
}

}  // namespace tovrek::converter
