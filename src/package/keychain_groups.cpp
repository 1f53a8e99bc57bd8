#include "package/keychain_groups.h"

#include <fmt/format.h>

#include "formats/PlistValue.h"
#include "host/files.h"
#include "package/signed_entitlements.h"

namespace tovrek {
namespace {

constexpr const char* kAccessGroups = "keychain-access-groups";

bool listsAccessGroup(const PlistValue* groups, const std::string& group) {
  const PlistValue::Array* list = groups == nullptr ? nullptr : groups->array();
  if (list == nullptr) return false;
  for (const PlistValue& entry : *list) {
    const std::string* name = entry.string();
    if (name != nullptr && name->find(group) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

bool checkKeychainAccessGroup(const std::string& group, const std::string& entitlementsFile,
                              ErrorText* error, const WrapperLogger& logger) {
  const auto refuse = [error, &logger](const std::string& text) {
    logger.logError(text);
    return fail(error, text);
  };
  if (!fileExists(entitlementsFile)) {
    return refuse("CheckKeychainAccessGroup: Entitlements file not found.");
  }
  const std::optional<PlistDictionary> entitlements = readPlistDictionary(entitlementsFile);
  if (!entitlements) return refuse(fmt::format("ERROR: unable to read {}", entitlementsFile));

  const bool found = listsAccessGroup(entitlements->find(kAccessGroups), group);
  logger.logBasic(
      found ? "CheckKeychainAccessGroup: Access group found in the entitlements file."
            : "CheckKeychainAccessGroup: No access groups found in the entitlements file.");
  return found;
}

bool checkKeychainAccessGroupInAppBundlePath(const std::string& group,
                                             const std::string& appBundlePath,
                                             const WrapperLogger& logger) {
  const std::optional<PlistValue> groups =
      ReadEmbeddedEntitlements(appBundlePath, kAccessGroups, logger);
  const bool found = listsAccessGroup(groups ? &*groups : nullptr, group);
  logger.logBasic(found ? "CheckKeychainAccessGroup: Access group found in the app bundle."
                        : "CheckKeychainAccessGroup: No access groups found in the app bundle.");
  return found;
}

}  // namespace tovrek
