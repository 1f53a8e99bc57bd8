// The sections of a manifest that describe a package and its app. Nothing of the app's is changed.
#pragma once

#include <optional>
#include <string>

#include "formats/XmlElement.h"
#include "log/WrapperLogger.h"
#include "package/MobileApp.h"
#include "package/WexManifestAppInfo.h"

namespace tovrek {

class MobileAppPackage {
 public:
  // Both must outlive the object.
  MobileAppPackage(const WexManifestAppInfo& appInfo, const WrapperLogger& logger)
      : appInfo_(appInfo), logger_(logger) {}

  // The general part; none without an app bundle.
  std::optional<XmlElement> generatePackageElements() const;
  static XmlElement GeneratePackageElements(const std::string& bundlePath,
                                            const std::optional<std::string>& packageDescription,
                                            const WrapperLogger& logger);

  // The app's part, for an app that finishApp has finished. None, logged, when the bundle has no
  // icon list.
  std::optional<XmlElement> generateMobileAppElement(MobileApp finished) const;

 private:
  void addMoreInfo(MobileApp& app) const;

  const WexManifestAppInfo& appInfo_;
  const WrapperLogger& logger_;
};

}  // namespace tovrek
