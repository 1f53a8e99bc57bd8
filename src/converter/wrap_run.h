// The working state of one conversion.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "context/RunContext.h"
#include "converter/AppConverter.h"
#include "formats/PlistValue.h"
#include "package/AppBundle.h"
#include "package/ManifestLibInterface.h"
#include "package/TemporaryDirectory.h"
#include "package/UnzippedIpa.h"

namespace tovrek {

struct AppConverter::WrapRun {
  std::shared_ptr<TemporaryDirectory> directory;
  std::string appPath;
  std::string payloadDir;  // empty when the input is an .app, used where it stands
  std::optional<AppBundle> bundle;
  BundleInspection inspection;
  bool isRenewal = false;  // Sign, of an .ipa that is wrapped already
  std::optional<PlistDictionary> profile;
  std::string entitlementPath;
  std::vector<std::string> policyLanguages;
  std::string ipaFolder;  // where the output .ipa is to stand
  std::string targetIpaPath;
  RunContext context;
  std::unique_ptr<ManifestLibInterface> manifest;
};

}  // namespace tovrek
