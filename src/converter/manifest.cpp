// The package's manifest: building it, and filling in what is known only in the end.
#include <fmt/format.h>

#include "converter/common.h"
#include "converter/steps.h"
#include "package/ManifestData.h"
#include "package/intune_detection.h"
#include "package/manifest_edits.h"

namespace tovrek::converter {
namespace {

// Whether the app is offered by a store while its package only tells where.
bool isPublished(const Request& request) {
  return request.isSDK && !request.packageApp;
}

std::string manifestAppMode(const Request& request) {
  const bool isTold = request.isSDK || !isEmpty(request.outputBundleFile);
  return isTold ? request.appMode.value_or("") : std::string();
}

WexManifestAppInfo appInfoFor(const Run& run, ErrorText* error) {
  const Request& request = run.request;
  WexManifestAppInfo info;
  info.ipaFilename = run.outputIPAFileName;
  info.appBundle = run.bundle;
  if (isPublished(request)) info.appStoreURL = manifestStoreUrl(request.appStoreUrl);
  info.appMode = manifestAppMode(request);
  info.isIntuneApp =
      detectIntuneInAppBundle(run.bundle ? run.bundle->path() : "", request.entitlementsPath,
                              run.context.loggers.manifest, error);
  info.description = request.description;
  info.packageId = request.packageId;
  info.teamId = request.teamId;
  info.adalClientId = request.adalClientId;
  info.adalNSGResource = request.adalNSGResource;
  return info;
}

// `keepsLimits`: those that the app brought along and no option names stay.
void complete(Run& run, const std::string& ipaPath, bool keepsLimits) {
  if (!run.manifest->GeneratePackageSizeWithIpaFile(ipaPath)) {
    run.log().logWarning("manifest.xml has no size of the app");
  }
  ManifestData data(run.request.appFriendlyName);
  data.minPlatform = run.request.minPlatform;
  data.maxPlatform = run.request.maxPlatform;
  data.excludedDevices = run.request.excludedDevices;
  data.keepsOthers = keepsLimits;
  const std::string manifest = joinPath(run.packageDir(), "manifest.xml");
  if (!UpdateManifestFileAsPerUserSelection(manifest, data, run.context.loggers.manifest)) {
    run.log().logWarning("Failed to update manifest.xml with additional metadata. ");
  }
}

}  // namespace

bool buildManifest(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Generating manifest xml...");
  const ManifestFiles files{run.packageDir(), joinPath(run.packageDir(), "manifest.xml"),
                            run.policyLanguages};
  ErrorText unanswered;
  run.manifest =
      std::make_unique<ManifestLibInterface>(appInfoFor(run, &unanswered), files, run.context);
  if (unanswered.isSet()) return fail(error, unanswered.text());
  return run.manifest->buildManifestXml() == 0 ||
         fail(error, "Failed to generate this file: manifest.xml");
}

bool copyIcons(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Copying icon files...");
  const int result = run.manifest->copyIconFiles();
  if (result != 0) fail(error, fmt::format("Failed to extract icon files. Error:{}", result));
  return true;
}

bool completeManifest(Run& run, ErrorText* /*error*/) {
  complete(run, joinPath(run.packageDir(), run.outputIPAFileName),
           run.context.settings.keepPlistLimits);
  return true;
}

bool completeManifestOfSdkApp(Run& run, ErrorText* error) {
  if (!isPublished(run.request)) return completeManifest(run, error);
  complete(run, "", run.context.settings.keepPlistLimits);
  return true;
}

bool completeManifestOfAppFolder(Run& run, ErrorText* /*error*/) {
  complete(run, run.appPath, false);
  return true;
}

}  // namespace tovrek::converter
