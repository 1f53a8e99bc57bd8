#include "package/MobileApp.h"

#include <fmt/format.h>

#include "formats/WEX_Base64.h"
#include "host/paths.h"
#include "package/Icon.h"
#include "package/WexInfoPlistModifier.h"
#include "package/bundle_icons.h"
#include "package/icon_sizes.h"

namespace tovrek {
namespace {

// The attribute by which the server knows an element.
constexpr char kServerKey[] = "CRKW";

// Appends elements in the order that the server wants.
class ElementList {
 public:
  explicit ElementList(XmlElement* parent) : parent_(parent) {}

  void plain(const char* name, const std::string& value) {
    parent_->append(XmlElement(name, value));
  }
  void keyed(const char* name, const std::string& key, const std::string& value) {
    XmlElement child(name, value);
    child.attribute(kServerKey, key);
    parent_->append(std::move(child));
  }
  void keyedUnlessEmpty(const char* name, const std::string& key, const std::string& value) {
    if (!value.empty()) keyed(name, key, value);
  }
  // For elements whose key is their own name behind "Mam".
  void mamKeyed(const char* name, const std::string& value) {
    keyed(name, fmt::format("Mam{}", name), value);
  }

 private:
  XmlElement* parent_;
};

}  // namespace

std::optional<XmlElement> MobileApp::generateMobileAppXMLFromAppBundle(
    const AppBundle& bundle, const WrapperLogger& logger) {
  auto icons = GetIcons(bundle, logger);
  if (!icons) return std::nullopt;
  const auto infoPlist = WexInfoPlistModifier::initWithAppBundle(bundle, logger);
  if (!infoPlist) return std::nullopt;
  // What the app itself supports stands above what the record was made with.
  excludeDeviceTypes = infoPlist->getExcludedDevices();
  return element(std::move(*icons));
}

XmlElement MobileApp::element(XmlElement icons) const {
  XmlElement root("MobileApp");
  ElementList list(&root);
  const auto moreInfoElement = [&](const char* name) {
    const auto entry = moreInfo.find(name);
    if (entry != moreInfo.end()) list.plain(name, entry->second);
  };
  list.keyed("ToolVersion", "MamToolsVersion", toolVersion);
  moreInfoElement("ToolsProductVersion");
  moreInfoElement("ToolsBuildNumber");
  list.keyed("AppType", "MamAppType", appType);
  list.keyed("AppID", "MamAppID", appID);
  list.keyed("AppVersion", "MamAppVersion", appVersion);
  list.plain("BundleID", bundleID);
  list.plain("FriendlyName", friendlyName);
  list.plain("BundleChecksum", bundleCheckSum);
  list.keyedUnlessEmpty("MinPlatform", "MamMinPlatform", minPlatform);
  list.keyedUnlessEmpty("MaxPlatform", "MamMaxPlatform", maxPlatform);
  list.keyedUnlessEmpty("ExcludeDeviceTypes", "MamExcludeDeviceTypes", excludeDeviceTypes);
  list.plain("UrlScheme", urlScheme);
  list.plain("BundleFile", bundleFileName);
  list.keyed("PackageID", "MamPackageID", packageID);
  root.append(std::move(icons));
  list.keyed("PackageSize", "MamPackageSize", "");  // known once the .ipa is made
  list.keyed("PublicKey", "MamPublicKey", publicKey);
  if (!appStoreUrl.empty()) {
    list.keyed("AppStoreUrl", "MamPublicStoreURL", WEX_Base64::encode(appStoreUrl));
  }
  moreInfoElement("WEXApplicationType");
  const auto appMode = moreInfo.find("SDKAppMode");
  if (appMode != moreInfo.end()) list.mamKeyed("SDKAppMode", appMode->second);
  list.mamKeyed("AppUniqueID", appUniqueID);
  list.mamKeyed("WrappingTimestamp", wrapperTimeStamp);
  return root;
}

std::optional<XmlElement> MobileApp::GetIcons(const AppBundle& bundle,
                                              const WrapperLogger& logger) {
  const auto names = readIconsDetailsFromAppBundle(bundle, logger);
  if (!names) {
    logger.logError(
        fmt::format("Could not find Icon entry in {} , icons are mandatory", bundle.path()));
    return std::nullopt;
  }
  XmlElement icons("Icons");
  for (const std::string& name : *names) {
    const auto file = bundle.resourcePath(deletingPathExtension(name), "png");
    const IconResolution size = file ? LoadIconImage(*file) : IconResolution();
    if (size.isKnown()) {
      icons.append(Icon{size.xRes, size.yRes, name}.GenerateIconElement());
    } else {
      logger.logError(fmt::format("Icon resolution is 0, not adding icon {}", name));
    }
  }
  return icons;
}

}  // namespace tovrek
