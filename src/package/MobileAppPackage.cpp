#include "package/MobileAppPackage.h"

#include "host/clock.h"
#include "host/paths.h"
#include "host/version.h"
#include "package/PackageInfo.h"
#include "package/embedded_profile.h"
#include "package/management_entries.h"

namespace tovrek {
namespace {

std::string applicationType(const std::string& appMode) {
  if (appMode.empty()) return "WEXOnly";
  if (appMode == "1") return "Premium";
  return appMode == "2" ? "General" : "Invalid";
}

}  // namespace

std::optional<XmlElement> MobileAppPackage::generatePackageElements() const {
  if (!appInfo_.appBundle) return std::nullopt;
  return GeneratePackageElements(appInfo_.appBundle->path(), appInfo_.description, logger_);
}

XmlElement MobileAppPackage::GeneratePackageElements(
    const std::string& bundlePath, const std::optional<std::string>& packageDescription,
    const WrapperLogger& logger) {
  const std::string date = dateDescription(currentTime());
  const PackageInfo info{packageDescription.value_or("Managed Enterprise Application"), date,
                         profileExpiry(bundlePath, logger).value_or(date)};
  return info.GeneratePackageInfo(Packager::current());
}

std::optional<XmlElement> MobileAppPackage::generateMobileAppElement(MobileApp finished) const {
  if (!appInfo_.appBundle) return std::nullopt;
  finished.appType = "application/ios";
  finished.urlScheme = managementUrlScheme(finished.packageID);
  finished.bundleFileName = lastPathComponent(appInfo_.ipaFilename);
  finished.appStoreUrl = appInfo_.appStoreURL;
  finished.toolVersion = kToolVersion;
  addMoreInfo(finished);
  return finished.generateMobileAppXMLFromAppBundle(*appInfo_.appBundle, logger_);
}

void MobileAppPackage::addMoreInfo(MobileApp& app) const {
  const std::string appMode = trimmed(appInfo_.appMode);
  app.moreInfo = {{"WEXApplicationType", applicationType(appMode)},
                  {"ToolsProductVersion", kToolVersion},
                  {"ToolsBuildNumber", kToolBuild}};
  if (!appMode.empty()) app.moreInfo["SDKAppMode"] = appMode;
}

}  // namespace tovrek
