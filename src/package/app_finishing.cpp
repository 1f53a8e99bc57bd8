#include "package/app_finishing.h"

#include "host/clock.h"
#include "host/disk_space.h"
#include "package/WexInfoPlistModifier.h"
#include "package/application_identifier.h"
#include "package/checksum.h"
#include "package/management_entries.h"
#include "package/package_key.h"
#include "package/settings_plist.h"

namespace tovrek {
namespace {

bool failed(const WrapperLogger& logger, const char* text) {
  logger.logError(text);
  return false;
}

// Under which names and numbers the app goes.
bool identify(const WexManifestAppInfo& appInfo, const WexInfoPlistModifier& infoPlist,
              const WrapperLogger& logger, MobileApp* app) {
  const AppBundle& bundle = *appInfo.appBundle;
  const PlistDictionary info = bundle.infoPlist();
  app->bundleID = stringForKeyOr(info, "CFBundleIdentifier", "");
  const auto appId = applicationIdentifier(bundle, app->bundleID, appInfo.teamId, logger);
  if (!appId) return false;
  app->appID = *appId;
  app->appVersion = stringForKeyOr(info, "CFBundleShortVersionString", "1.0");
  app->friendlyName = infoPlist.friendlyIPAname().value_or("");
  if (app->friendlyName.empty()) app->friendlyName = appInfo.ipaFilename;
  app->minPlatform = stringForKeyOr(info, "MinimumOSVersion", "");
  app->packageID = appInfo.packageId ? *appInfo.packageId : GenerateUUID();
  return !app->packageID.empty() || failed(logger, "Error:- Could not generate Package ID");
}

// The values that cover the app's files as they stand.
bool seal(const std::string& bundlePath, const WrapperLogger& logger, bool showsProgress,
          MobileApp* app) {
  ProgressStage stage(showsProgress, "Checksums", [&] { return bytesBelow(bundlePath); });
  Digest contents(DigestAlgorithm::kSha256);
  if (LookForRecursiveFileWith(bundlePath, contents, logger, &stage)) {
    app->bundleCheckSum = CalulateSHA2StringFromData(contents);
  }
  if (app->bundleCheckSum.empty()) return failed(logger, "Error:- Could not generate checkSum");
  const auto key = GeneratePrivateKey(bundlePath, logger);
  if (!key) return failed(logger, "Error:- Could not Generate private key ");
  app->publicKey = *key;
  app->appUniqueID = CalulateMD5StringFromData(app->appID + app->friendlyName);
  app->wrapperTimeStamp = dateDescription(currentTime());
  return true;
}

}  // namespace

std::optional<MobileApp> finishApp(const WexManifestAppInfo& appInfo, const WrapperLogger& logger,
                                   bool showsProgress) {
  const auto& bundle = appInfo.appBundle;
  auto infoPlist = WexInfoPlistModifier::initWithAppBundle(bundle, logger);
  if (infoPlist) infoPlist->disableAppTransportSecurity();
  if (!bundle || bundle->path().empty()) {
    failed(logger, "Error:- The embeded.mobileprofile path is empty.");
    return std::nullopt;
  }
  MobileApp app;
  // The checksum and the key cover the finished Info.plist; the settings file holds both.
  const bool finished =
      infoPlist && identify(appInfo, *infoPlist, logger, &app) &&
      addManagementEntries(*infoPlist, appInfo, app.packageID, app.friendlyName, logger) &&
      seal(bundle->path(), logger, showsProgress, &app) &&
      writeSettingsFile(bundle->path(), app, appInfo.appMode, logger);
  return finished ? std::optional(app) : std::nullopt;
}

}  // namespace tovrek
