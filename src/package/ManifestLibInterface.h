// Builds a package's manifest, with all that goes along with it: the app's Info.plist is
// finished, its settings file "Orvane.plist" written, its icons copied into the package.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "log/WrapperLogger.h"
#include "package/WexManifestAppInfo.h"

namespace tovrek {

// The store address of a package whose app is offered by a store but has no address yet.
inline constexpr char ORVANE_DEFAULT_APPSTOREURL[] = "http://localhost/appStoreURL";

class ManifestLibInterface {
 public:
  // A store address is taken over only for an app that is published rather than packaged.
  ManifestLibInterface(const std::string& ipaFileName, const std::optional<AppBundle>& appBundle,
                       const std::string& outputPackagePath,
                       const std::vector<std::string>& policyLanguageFiles,
                       const std::string& manifestXMLPath, const std::string& appMode,
                       WrapperLogger& logger, const PackageDetails& details);

  // 0, or -1 when the document could not be built (logged). Edits made to the app on the way
  // stay. A failed write of the manifest is not detected.
  int buildManifestXml();
  // 0 when at least one icon was copied, else -1.
  int copyIconFiles();
  // Fills in the size, once the signed .ipa exists.
  void GeneratePackageSizeWithIpaFile(const std::string& ipaPath);

  const WexManifestAppInfo& manifestAppInfo() const { return manifestAppInfo_; }
  const std::string& outPackagePath() const { return outPackagePath_; }
  const std::string& manifestXMLPath() const { return manifestXMLPath_; }

 private:
  bool copyIcon(const std::string& name);

  std::string outPackagePath_;
  WrapperLogger& logger_;
  std::vector<std::string> policyLanguageFiles_;
  std::string manifestXMLPath_;
  WexManifestAppInfo manifestAppInfo_;
};

}  // namespace tovrek
