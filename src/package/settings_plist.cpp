#include "package/settings_plist.h"

#include <fmt/format.h>

#include "host/paths.h"
#include "host/version.h"

namespace tovrek {

bool GenerateOrvanePlistFile(const PlistDictionary& dictionary, const std::string& path) {
  return !path.empty() && writePlist(path, dictionary, PlistFormat::kXml);
}

bool writeSettingsFile(const std::string& bundlePath, const MobileApp& app,
                       const std::string& appMode, const WrapperLogger& logger) {
  PlistDictionary settings;
  settings.set("CheckSum", app.bundleCheckSum);
  settings.set("AppID", app.appID);
  settings.set("PackageID", app.packageID);
  settings.set("publicKey", app.publicKey);
  settings.set("AppUniqueID", app.appUniqueID);
  settings.set("WrappingTimestamp", app.wrapperTimeStamp);
  settings.set("ReleaseVersion", fmt::format("r{}_v{}.{}", kToolVersion, kToolVersion, kToolBuild));
  const std::string mode = trimmed(appMode);
  if (!mode.empty()) settings.set("AppMode", mode);
  const std::string path = joinPath(bundlePath, "Orvane.plist");
  if (GenerateOrvanePlistFile(settings, path)) return true;
  logger.logError(fmt::format("Error:- Could not Generate plist file {}", path));
  return false;
}

}  // namespace tovrek
