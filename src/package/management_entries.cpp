#include "package/management_entries.h"

#include <fmt/format.h>

#include "package/adal_settings.h"

namespace tovrek {
namespace {

constexpr char kSchemeGroup[] = "com.orvane.sso.";

bool addUrlSchemes(WexInfoPlistModifier& infoPlist, const std::string& packageId,
                   const WrapperLogger& logger) {
  const auto failed = [&logger](const char* text) {
    logger.logError(text);
    return false;
  };
  if (!infoPlist.addURLScheme(managementUrlScheme(packageId), kSchemeGroup)) {
    return failed("Error:- Could not add URLScheme1 in Info.plist");
  }
  if (!infoPlist.addURLScheme(fmt::format("mailcompose.{}", packageId))) {
    return failed("Error:- Could not add URLScheme2 in Info.plist");
  }
  if (!infoPlist.addWEXWhitelistURLSchemes()) {
    return failed("Error:- Could not add WEX whitelist URLSchemes to Info.plist");
  }
  logger.logBasic("Added URL schemes whitelist.");
  return true;
}

bool addIntuneSettings(WexInfoPlistModifier& infoPlist, const WexManifestAppInfo& appInfo,
                       const WrapperLogger& logger) {
  if (!appInfo.isIntuneApp) {
    logger.logBasic("application does not contains Intune runtime support");
    return true;
  }
  logger.logBasic("Application contains Intune support");
  return updateInfoPlistObject(infoPlist, appInfo.adalClientId, appInfo.adalNSGResource, logger);
}

}  // namespace

std::string managementUrlScheme(const std::string& packageId) {
  return kSchemeGroup + packageId;
}

bool addManagementEntries(WexInfoPlistModifier& infoPlist, const WexManifestAppInfo& appInfo,
                          const std::string& packageId, const std::string& friendlyName,
                          const WrapperLogger& logger) {
  infoPlist.addKey("NSLocationWhenInUseUsageDescription",
                   "Your organization's policy requires your location for this app.", false);
  infoPlist.addKey("NSFaceIDUsageDescription",
                   fmt::format("Use Face ID to unlock {}", friendlyName), false);
  if (!addUrlSchemes(infoPlist, packageId, logger) ||
      !addIntuneSettings(infoPlist, appInfo, logger)) {
    return false;
  }
  infoPlist.synchronize();
  return true;
}

}  // namespace tovrek
