// What the manifest builder is told about the app.
#pragma once

#include <optional>
#include <string>

#include "package/AppBundle.h"

namespace tovrek {

// What the user wants told about the app.
struct PackageDetails {
  bool isPublished = false;  // a store offers the app, and the package only tells where
  std::optional<std::string> appStoreUrl;
  std::optional<std::string> description;
  std::optional<std::string> packageId;         // none: a new one is made
  std::optional<std::string> teamId;            // for an app without profile and signature
  std::optional<std::string> entitlementsPath;  // that the developer is going to sign with
  std::optional<std::string> adalClientId;
  std::optional<std::string> adalNSGResource;
};

struct WexManifestAppInfo {
  std::string ipaFilename;
  std::optional<AppBundle> appBundle;
  std::string appStoreURL;  // empty: the manifest gets no store element
  std::string appMode;
  bool isIntuneApp = false;
  PackageDetails details;
};

}  // namespace tovrek
