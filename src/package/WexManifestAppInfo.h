// What the manifest builder is told about the app.
#pragma once

#include <optional>
#include <string>

#include "package/AppBundle.h"
#include "params/AppConverterParam.h"

namespace tovrek {

struct WexManifestAppInfo {
  std::string ipaFilename;
  std::optional<AppBundle> appBundle;
  std::string appStoreURL;  // empty: the manifest gets no store element
  std::string appMode;
  bool isIntuneApp = false;
  AppConverterParam converterParam;
};

}  // namespace tovrek
