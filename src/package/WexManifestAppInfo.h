// What the manifest builder is told about the app.
#pragma once

#include <optional>
#include <string>

#include "package/AppBundle.h"

namespace tovrek {

// A text that the user did not give is none, which differs from one given as the empty text.
struct WexManifestAppInfo {
  std::string ipaFilename;
  std::optional<AppBundle> appBundle;
  std::string appStoreURL;  // empty: the manifest gets no store element
  std::string appMode;
  bool isIntuneApp = false;
  std::optional<std::string> description;  // none: a standard text
  std::optional<std::string> packageId;    // none: a new one
  std::optional<std::string> teamId;
  std::optional<std::string> adalClientId;
  std::optional<std::string> adalNSGResource;
};

}  // namespace tovrek
