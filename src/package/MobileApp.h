// The section of a manifest that describes the app.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "formats/XmlElement.h"
#include "log/WrapperLogger.h"
#include "package/AppBundle.h"

namespace tovrek {

struct MobileApp {
  // The element, with the icons and excluded devices that the bundle tells. None, logged, when
  // the bundle has no icon list or no Info.plist.
  std::optional<XmlElement> generateMobileAppXMLFromAppBundle(const AppBundle& bundle,
                                                              const WrapperLogger& logger);
  // The list of icons; those whose size cannot be read are logged and left out. None, logged,
  // when the bundle lists no icons.
  static std::optional<XmlElement> GetIcons(const AppBundle& bundle, const WrapperLogger& logger);

  std::string appType;
  std::string appID;
  std::string bundleID;
  std::string appVersion;
  std::string friendlyName;
  std::string bundleCheckSum;
  std::string minPlatform;
  std::string maxPlatform;
  std::string urlScheme;
  std::string bundleFileName;
  std::string excludeDeviceTypes;
  std::string packageID;
  std::string publicKey;
  std::string appStoreUrl;
  std::string toolVersion;
  std::string appUniqueID;
  std::string wrapperTimeStamp;
  // Optional elements: "ToolsProductVersion", "ToolsBuildNumber", "WEXApplicationType",
  // "SDKAppMode".
  std::map<std::string, std::string> moreInfo;

 private:
  XmlElement element(XmlElement icons) const;
};

}  // namespace tovrek
