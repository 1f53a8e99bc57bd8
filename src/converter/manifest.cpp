#include "converter/manifest.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "package/HelperMethods.h"
#include "package/ManifestData.h"

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

PackageDetails detailsFor(const Request& request) {
  PackageDetails details;
  details.isPublished = isPublished(request);
  details.appStoreUrl = request.appStoreUrl;
  details.description = request.description;
  details.packageId = request.packageId;
  details.teamId = request.teamId;
  details.entitlementsPath = request.entitlementsPath;
  details.adalClientId = request.adalClientId;
  details.adalNSGResource = request.adalNSGResource;
  return details;
}

// `keepsLimits`: those that the app brought along and no option names stay.
void complete(Run& run, const std::string& ipaPath, bool keepsLimits) {
  run.manifest->GeneratePackageSizeWithIpaFile(ipaPath);
  ManifestData data(run.request.appFriendlyName);
  data.minPlatform = run.request.minPlatform;
  data.maxPlatform = run.request.maxPlatform;
  data.excludedDevices = run.request.excludedDevices;
  data.keepsOthers = keepsLimits;
  const std::string manifest = joinPath(run.packageDir(), "manifest.xml");
  if (!HelperMethods::UpdateManifestFileAsPerUserSelection(manifest, data)) {
    run.log().logWarning("Failed to update manifest.xml with additional metadata. ");
  }
}

}  // namespace

bool buildManifest(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Generating manifest xml...");
  run.manifest = std::make_unique<ManifestLibInterface>(
      run.outputIPAFileName, run.bundle, run.packageDir(), run.policyLanguages,
      joinPath(run.packageDir(), "manifest.xml"), manifestAppMode(run.request),
      run.context.loggers.toolkit, detailsFor(run.request));
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
