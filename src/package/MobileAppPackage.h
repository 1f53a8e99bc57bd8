// Gathers what a manifest says about an app, finishing the app's own files on the way.
#pragma once

#include <optional>
#include <string>

#include "formats/XmlElement.h"
#include "package/MobileApp.h"
#include "package/WexInfoPlistModifier.h"
#include "package/WexManifestAppInfo.h"

namespace tovrek {

class MobileAppPackage {
 public:
  // `appInfo` must outlive the object.
  explicit MobileAppPackage(const WexManifestAppInfo& appInfo) : appInfo_(appInfo) {}

  // The general part; none without an app bundle.
  std::optional<XmlElement> generatePackageElements() const;
  static XmlElement GeneratePackageElements(const std::string& bundlePath,
                                            const std::optional<std::string>& packageDescription);
  // When the profile in the bundle expires, as a manifest says it; none without such a date.
  static std::optional<std::string> profileExpiry(const std::string& bundlePath);

  // The app's part. Adds the management layer's entries to the Info.plist and writes
  // "Orvane.plist"; none, logged, on failure, with the edits made so far left in place.
  std::optional<XmlElement> generateMobileAppElement() const;

  // Sets the Intune directory client and the gateway resource: an explicit value replaces what
  // the app has, a default is only filled in. True also where a value of the app's was kept.
  static bool updateInfoPlistObject(WexInfoPlistModifier& infoPlist,
                                    const std::optional<std::string>& adalClientID,
                                    const std::optional<std::string>& nsgResource);

 private:
  std::optional<std::string> applicationIdentifier(const AppBundle& bundle,
                                                   const std::string& bundleId) const;
  std::optional<std::string> packageIdentifier() const;
  bool finishInfoPlist(WexInfoPlistModifier& infoPlist, const std::string& packageId,
                       const std::string& friendlyName) const;
  bool writeSettingsFile(const AppBundle& bundle, const MobileApp& app) const;
  void addMoreInfo(MobileApp& app) const;

  const WexManifestAppInfo& appInfo_;
};

}  // namespace tovrek
