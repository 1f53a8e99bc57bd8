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
#include "package/new_entitlements.h"
#include "profile/ProvisioningProfile.h"
#include "tools/tool_run.h"

namespace tovrek::converter {
namespace {

// What codesign extracts from the old signature goes into this file of the app.
constexpr char kOldEntitlements[] = "orig-entitlements.plist";

using OptionalDictionary = std::optional<PlistDictionary>;

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

// The "Entitlements" of a profile saved as a property list.
OptionalDictionary readProfileEntitlements(const WrapperLogger& log, const std::string& profilePath,
                                           ErrorText* error) {
  ErrorText reason;
  const auto profile = readPlistDictionary(profilePath, &reason);
  if (!profile) {
    log.logError("GenerateEntitlement: Failed to read provisioning profile into NSDictionary.");
    fail(error, "ERROR: Failed to read provisioning profile.", reason.text());
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
  ErrorText reason;
  const bool written = writePlist(profilePath, *profileData, PlistFormat::kXml, &reason);
  systemLog(
      fmt::format("tempDir: {} \nprofilePath: {}", printable(targetDir), printable(profilePath)),
      LineBreaks::kKept);
  if (!written) {
    return fail(error, "ERROR: Failed to decode provisioning profile.", reason.text());
  }
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
  systemLog(fmt::format("new bundle seed ID: {}, teamIdFromProfile: {}", profileAppId,
                        prefixOf(profileAppId)));
  const std::string newAppId = newApplicationIdentifier(*profile, run.replacementBundleID,
                                                        run.request.preserveUpgradeCompatibility);
  log.logDetailed("newAppID: " + newAppId);
  const OptionalDictionary old = readOldEntitlements(log, appPath);
  return writeEntitlements(log, targetPath, newEntitlements(log, *profile, old, newAppId, error),
                           error);
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
  const PlistValue::Array* listed = arrayForKey(*entitlements, entitlement::kKeychainGroups);
  for (const PlistValue& group : listed ? *listed : PlistValue::Array()) {
    if (std::ranges::find(groups, group) == groups.end()) groups.push_back(group);
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
