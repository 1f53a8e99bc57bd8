// One run: what it was given, and what its steps find out on the way.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "context/RunContext.h"
#include "converter/Request.h"
#include "converter/UnpackedInput.h"
#include "converter/inspection.h"
#include "device/profile_choice.h"
#include "formats/PlistValue.h"
#include "host/paths.h"
#include "log/ProgressStage.h"
#include "log/TKProgressor.h"
#include "package/AppBundle.h"
#include "package/ManifestLibInterface.h"
#include "package/UnzippedCma.h"

namespace tovrek::converter {

// An extension or watch app that gets a profile and entitlements of its own.
struct NestedBundle {
  std::string path;
  std::optional<std::string> entitlementPath;  // none where no profile fits: it keeps its own
};

struct Run {
  // All but the path and the input must outlive the run.
  Run(const Request& asked, RunContext& shared, TKProgressor& progress, std::string content,
      UnpackedInput unpacked)
      : request(asked),
        context(shared),
        progressor(progress),
        contentPath(std::move(content)),
        input(std::move(unpacked)),
        replacementBundleID(asked.replacementBundleID) {}

  // --- Given ---
  const Request& request;
  RunContext& context;
  TKProgressor& progressor;
  const std::string contentPath;  // of the bundles and policies to insert, only read from
  UnpackedInput input;            // the first step unpacks what was not unpacked before

  // --- The app ---
  std::shared_ptr<UnzippedCma> package;  // when the app came in one
  std::string appPath;
  std::string payloadDir;  // empty when the input is an .app, used where it stands
  std::optional<AppBundle> bundle;
  BundleInspection inspection;
  bool isRenewal = false;  // Sign, of an .ipa that is wrapped already
  std::optional<std::string> originalBundleID;
  // What identifiers inside the app begin with: also that from before an earlier wrapping.
  std::optional<std::string> formerBundleID;
  std::optional<std::string> replacementBundleID;

  // --- Its new signature ---
  std::optional<PlistDictionary> profile;
  std::string entitlementPath;
  std::vector<device::StoredProfile> profiles;  // to choose from for nested bundles
  std::vector<NestedBundle> nested;             // inner ones first; empty where they go the old way

  std::unique_ptr<ProgressStage> signing;  // from when it begins

  // --- The output ---
  std::vector<std::string> policyLanguages;
  std::unique_ptr<ManifestLibInterface> manifest;
  std::string outputIPAFileName;
  std::string ipaFolder;  // where the output .ipa is to stand
  std::string oldIpa;     // of the package that is signed anew, out of the way
  // Variables for the unzip and the zip of a package whose app is left where it is.
  std::vector<std::pair<std::string, std::string>> archiveEnvironment;

  const WrapperLogger& log() const { return context.loggers.toolkit; }
  // The scratch folder, and the folder in it where the package is put together.
  const std::string& scratch() const { return input.directory->tempDir(); }
  const std::string& packageDir() const { return input.directory->packageDir(); }
  // An item of the content folder.
  std::string contentFile(std::string_view name) const { return joinPath(contentPath, name); }
  std::string targetIpaPath() const { return joinPath(ipaFolder, outputIPAFileName); }
};

}  // namespace tovrek::converter
