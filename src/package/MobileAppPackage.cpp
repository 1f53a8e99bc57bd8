#include "package/MobileAppPackage.h"

#include <fmt/format.h>

#include "host/clock.h"
#include "host/paths.h"
#include "log/module_loggers.h"
#include "package/HelperMethods.h"
#include "package/PackageInfo.h"
#include "package/tool_version.h"

namespace tovrek {
namespace {

constexpr char kSchemeGroup[] = "com.orvane.sso.";

void logError(const std::string& text) {
  Global_ManifestLib_logger().logError(text);
}

std::nullopt_t failed(const std::string& text) {
  logError(text);
  return std::nullopt;
}

std::string now() {
  return dateDescription(currentTime());
}

// An identifier for any app of a team names this one: what stands in front of the first "." stays
// and the bundle identifier follows.
std::optional<std::string> withoutWildcard(const std::string& identifier,
                                           const std::string& bundleId) {
  if (identifier.find('*') == std::string::npos) return identifier;
  if (bundleId.empty()) return std::nullopt;
  const size_t dot = identifier.find('.');
  const size_t kept = dot == std::string::npos ? identifier.size() - 1 : dot + 1;
  return identifier.substr(0, kept) + bundleId;
}

// The text of a value that may be missing, empty or of another kind.
std::optional<std::string> lettersOf(const std::optional<PlistValue>& value) {
  if (!value || value->string() == nullptr || value->string()->empty()) return std::nullopt;
  return *value->string();
}

std::string applicationType(const std::string& appMode) {
  if (appMode.empty()) return "WEXOnly";
  if (appMode == "1") return "Premium";
  return appMode == "2" ? "General" : "Invalid";
}

std::optional<std::string> checksumOf(const std::string& folder) {
  Digest contents(DigestAlgorithm::kSha256);
  HelperMethods::LookForRecursiveFileWith(folder, contents);
  const std::string checksum = HelperMethods::CalulateSHA2StringFromData(contents);
  if (checksum.empty()) return std::nullopt;
  return checksum;
}

}  // namespace

std::optional<XmlElement> MobileAppPackage::generatePackageElements() const {
  if (!appInfo_.appBundle) return std::nullopt;
  return GeneratePackageElements(appInfo_.appBundle->path(), appInfo_.details.description);
}

XmlElement MobileAppPackage::GeneratePackageElements(
    const std::string& bundlePath, const std::optional<std::string>& packageDescription) {
  const std::string date = now();
  const PackageInfo info{packageDescription.value_or("Managed Enterprise Application"), date,
                         profileExpiry(bundlePath).value_or(date)};
  return info.GeneratePackageInfo(Packager::current());
}

std::optional<std::string> MobileAppPackage::profileExpiry(const std::string& bundlePath) {
  const auto expiration = HelperMethods::ReadEmbeddedProfile(
      joinPath(bundlePath, "embedded.mobileprovision"), "ExpirationDate");
  if (!expiration) return std::nullopt;
  const PlistValue::Date* day = expiration->date();
  return day != nullptr ? dateDescription(day->secondsSince1970)
                        : HelperMethods::returnString(&*expiration);
}

std::optional<XmlElement> MobileAppPackage::generateMobileAppElement() const {
  const auto& bundle = appInfo_.appBundle;
  auto infoPlist = WexInfoPlistModifier::initWithAppBundle(bundle);
  if (infoPlist) infoPlist->disableAppTransportSecurity();
  if (!bundle || bundle->path().empty()) {
    return failed("Error:- The embeded.mobileprofile path is empty.");
  }
  if (!infoPlist) return std::nullopt;

  const PlistDictionary info = bundle->infoPlist();
  MobileApp app;
  app.bundleID = stringForKeyOr(info, "CFBundleIdentifier", "");
  const auto appId = applicationIdentifier(*bundle, app.bundleID);
  if (!appId) return std::nullopt;
  app.appID = *appId;
  app.appVersion = stringForKeyOr(info, "CFBundleShortVersionString", "1.0");
  app.friendlyName = infoPlist->friendlyIPAname().value_or("");
  if (app.friendlyName.empty()) app.friendlyName = appInfo_.ipaFilename;
  app.minPlatform = stringForKeyOr(info, "MinimumOSVersion", "");
  const auto packageId = packageIdentifier();
  if (!packageId) return std::nullopt;
  app.packageID = *packageId;

  // The checksum and the key below cover the finished Info.plist.
  if (!finishInfoPlist(*infoPlist, app.packageID, app.friendlyName)) return std::nullopt;
  const auto checksum = checksumOf(bundle->path());
  if (!checksum) return failed("Error:- Could not generate checkSum");
  app.bundleCheckSum = *checksum;
  const auto key = HelperMethods::GeneratePrivateKey(bundle->path());
  if (!key) return failed("Error:- Could not Generate private key ");
  app.publicKey = *key;

  app.appUniqueID = HelperMethods::CalulateMD5StringFromData(app.appID + app.friendlyName);
  app.wrapperTimeStamp = now();
  if (!writeSettingsFile(*bundle, app)) return std::nullopt;
  app.appType = "application/ios";
  app.urlScheme = fmt::format("{}{}", kSchemeGroup, app.packageID);
  app.bundleFileName = lastPathComponent(appInfo_.ipaFilename);
  app.appStoreUrl = appInfo_.appStoreURL;
  app.toolVersion = kToolVersion;
  addMoreInfo(app);
  return app.generateMobileAppXMLFromAppBundle(*bundle);
}

std::optional<std::string> MobileAppPackage::applicationIdentifier(
    const AppBundle& bundle, const std::string& bundleId) const {
  const std::string& path = bundle.path();
  auto identifier = lettersOf(HelperMethods::ReadEmbeddedProfile(
      joinPath(path, "embedded.mobileprovision"), "Entitlements.application-identifier"));
  if (!identifier) {
    logError(
        "Warning:- Unable to get app identifier from embedded.mobileprovision, trying embedded "
        "entitlements.");
    identifier = lettersOf(HelperMethods::ReadEmbeddedEntitlements(
        bundle.executablePath().value_or(path), "application-identifier"));
  }
  if (!identifier) {
    const auto& teamId = appInfo_.details.teamId;
    identifier = teamId ? fmt::format("{}.{}", *teamId, bundleId) : bundleId;
    logError(fmt::format(
        "Warning:- Unable to get app identifier from embedded entitlements, reverting to bundle "
        "identifier {} (teamId = {}).",
        bundleId, teamId.value_or("(null)")));
  }
  return withoutWildcard(*identifier, bundleId);
}

std::optional<std::string> MobileAppPackage::packageIdentifier() const {
  const auto& given = appInfo_.details.packageId;
  const std::string packageId = given ? *given : HelperMethods::GenerateUUID();
  if (packageId.empty()) return failed("Error:- Could not generate Package ID");
  return packageId;
}

bool MobileAppPackage::finishInfoPlist(WexInfoPlistModifier& infoPlist,
                                       const std::string& packageId,
                                       const std::string& friendlyName) const {
  const WrapperLogger& logger = Global_ManifestLib_logger();
  infoPlist.addKey("NSLocationWhenInUseUsageDescription",
                   "Your organization's policy requires your location for this app.", false);
  infoPlist.addKey("NSFaceIDUsageDescription",
                   fmt::format("Use Face ID to unlock {}", friendlyName), false);
  if (!infoPlist.addURLScheme(fmt::format("{}{}", kSchemeGroup, packageId), kSchemeGroup)) {
    logger.logError("Error:- Could not add URLScheme1 in Info.plist");
    return false;
  }
  if (!infoPlist.addURLScheme(fmt::format("mailcompose.{}", packageId))) {
    logger.logError("Error:- Could not add URLScheme2 in Info.plist");
    return false;
  }
  if (!infoPlist.addWEXWhitelistURLSchemes()) {
    logger.logError("Error:- Could not add WEX whitelist URLSchemes to Info.plist");
    return false;
  }
  logger.logBasic("Added URL schemes whitelist.");

  const PackageDetails& details = appInfo_.details;
  if (appInfo_.isIntuneApp) {
    logger.logBasic("Application contains Intune support");
    if (!updateInfoPlistObject(infoPlist, details.adalClientId, details.adalNSGResource)) return false;
  } else {
    logger.logBasic("application does not contains Intune runtime support");
  }
  infoPlist.synchronize();
  return true;
}

bool MobileAppPackage::writeSettingsFile(const AppBundle& bundle, const MobileApp& app) const {
  PlistDictionary settings;
  settings.set("CheckSum", app.bundleCheckSum);
  settings.set("AppID", app.appID);
  settings.set("PackageID", app.packageID);
  settings.set("publicKey", app.publicKey);
  settings.set("AppUniqueID", app.appUniqueID);
  settings.set("WrappingTimestamp", app.wrapperTimeStamp);
  settings.set("ReleaseVersion",
               fmt::format("r{}_v{}.{}", kToolVersion, kToolVersion, kToolsBuildNumber));
  const std::string appMode = trimmed(appInfo_.appMode);
  if (!appMode.empty()) settings.set("AppMode", appMode);
  const std::string path = joinPath(bundle.path(), "Orvane.plist");
  if (HelperMethods::GenerateOrvanePlistFile(settings, path)) return true;
  logError(fmt::format("Error:- Could not Generate plist file {}", path));
  return false;
}

void MobileAppPackage::addMoreInfo(MobileApp& app) const {
  const std::string appMode = trimmed(appInfo_.appMode);
  app.moreInfo = {{"WEXApplicationType", applicationType(appMode)},
                  {"ToolsProductVersion", kToolVersion},
                  {"ToolsBuildNumber", kToolsBuildNumber}};
  if (!appMode.empty()) app.moreInfo["SDKAppMode"] = appMode;
}

}  // namespace tovrek
