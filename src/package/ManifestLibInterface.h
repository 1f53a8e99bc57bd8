// Builds a package's manifest and what goes along with it: the app is finished for its package,
// its icons are copied.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context/RunContext.h"
#include "package/WexManifestAppInfo.h"
#include "package/icon_sizes.h"

namespace tovrek {

// The store address of a package whose app is offered by a store but has no address yet.
inline constexpr char ORVANE_DEFAULT_APPSTOREURL[] = "http://localhost/appStoreURL";

// The address as a manifest says it, for an app that a store offers.
std::string manifestStoreUrl(const std::optional<std::string>& appStoreUrl);

// Where a manifest goes, and the files beside it that it names.
struct ManifestFiles {
  std::string outPackagePath;
  std::string manifestXMLPath;
  std::vector<std::string> policyLanguageFiles;
};

class ManifestLibInterface {
 public:
  // Nothing is read or started yet. `context` must outlive the object.
  ManifestLibInterface(WexManifestAppInfo appInfo, ManifestFiles files, RunContext& context)
      : appInfo_(std::move(appInfo)), files_(std::move(files)), context_(context) {}

  // Finishes the app and writes what the manifest says about it. 0, or -1 when the document could
  // not be built (logged). Edits made to the app on the way stay. A failed write of the manifest
  // is only logged.
  int buildManifestXml();
  // 0 when at least one icon was copied, else -1.
  int copyIconFiles();
  // Fills in the size, once the signed .ipa exists. False, and logged, when it could not.
  bool GeneratePackageSizeWithIpaFile(const std::string& ipaPath);

 private:
  int refuse(const char* section) const;
  bool copyIcon(const std::string& name, std::optional<ManifestIcons>& entries);

  WexManifestAppInfo appInfo_;
  ManifestFiles files_;
  RunContext& context_;
};

}  // namespace tovrek
