#include "converter/set_info_flow.h"

#include <fmt/format.h>

#include "converter/archives.h"
#include "converter/common.h"
#include "converter/flow.h"
#include "converter/input.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/own_programs.h"
#include "log/SystemLog.h"
#include "package/manifest_edits.h"

namespace tovrek::converter {
namespace {

constexpr char kMinPlatform[] = "//MinPlatform[@CRKW='MamMinPlatform']";
constexpr char kMaxPlatform[] = "//MaxPlatform[@CRKW='MamMaxPlatform']";
constexpr char kExcludedDevices[] = "//ExcludeDeviceTypes[@CRKW='MamExcludeDeviceTypes']";

// A path such as ".." names no place in the folder, but the folder itself or one above.
bool copyUnderName(const std::string& from, const std::string& folder, const std::string& name,
                   ErrorText* reason) {
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
    return fail(reason, fmt::format("{} has no name to be copied under", from));
  }
  const std::string target = joinPath(folder, name);
  if (itemExistsNoFollow(target)) removeItem(target);
  return copyItem(from, target, reason);
}

bool removeIpas(const WrapperLogger& log, const std::string& folder) {
  const auto names = listDirectory(folder);
  if (!names) {
    log.logError("Error: embedBundle: failed to enumerate current contents.");
    return false;
  }
  for (const std::string& name : *names) {
    if (pathExtension(name) != "ipa") continue;
    const std::string path = joinPath(folder, name);
    log.logBasic(fmt::format("embedBundle: Will remove existing ipa {}.", path));
    if (!removeItem(path)) {
      log.logError(fmt::format("Error: embedBundle: failed to remove previous ipa {}.", path));
      return false;
    }
  }
  return true;
}

// Where zip and unzip are both ours, the app in the package, which nothing here reads, need not be
// unpacked: a file stands for it, and zip copies the app from the input. The word tells such a file
// from all that packages may hold.
std::vector<std::pair<std::string, std::string>> standInsFor(const std::string& package) {
  const auto absolute = realPath(package);  // zip runs in another folder
  if (!absolute || !isOwnCompanion("/usr/bin/unzip") || !isOwnCompanion("/usr/bin/zip")) return {};
  return {{"TOVREK_STAND_INS", uniqueString() + " " + *absolute}};
}

bool changePackage(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Unzipping...");
  run.archiveEnvironment = standInsFor(run.request.inputFile.value_or(""));
  run.input.directory = std::make_shared<TemporaryDirectory>();
  return extractAndUpdateWexPackageInTempDir(run, *run.input.directory, error);
}

bool packAgain(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Generating package file...");
  return ZiptoPackage(run, run.scratch(), error);
}

}  // namespace

bool updatePackage(Run& run, ErrorText* error) {
  return takeSteps({changePackage, packAgain}, run, error);
}

bool extractAndUpdateWexPackageInTempDir(const Run& run, TemporaryDirectory& directory,
                                         ErrorText* error) {
  if (!directory.CreateTempDirForCma(error)) return false;
  logLeftovers(run.log(), directory);
  const auto package = UnzippedCma::initWithCma(run.request.inputFile.value_or(""), directory);
  package->setLog(&run.log());
  package->setEnvironment(run.archiveEnvironment);
  return package->Unzip(error) && updateWEXpackage(run, *package);
}

bool updateWEXpackage(const Run& run, const UnzippedCma& package) {
  run.log().logDetailed(fmt::format("Updating. sdkOp={}.", static_cast<int>(run.request.sdkOp)));
  if (run.request.appSpecificPolicyFilepath) {
    run.log().logWarning(fmt::format("The policy file {} is not used when a package is updated.",
                                     *run.request.appSpecificPolicyFilepath));
  }
  const std::string& manifest = package.manifestxmlPath();
  if (run.request.sdkOp == SdkOperation::kStoreAddress && run.request.appStoreUrl &&
      !UpdateAppStoreURL(manifest, *run.request.appStoreUrl, run.context.loggers.manifest)) {
    run.log().logDetailed("Error: update app store url failed.");
    return false;
  }
  if (run.request.sdkOp == SdkOperation::kEmbeddedBundle &&
      !doEmbedBundle(run, run.request.embedBundlePath, package)) {
    run.log().logDetailed("Error: embed bundle failed.");
    return false;
  }
  const std::pair<const char*, const std::optional<std::string>&> properties[] = {
      {kMinPlatform, run.request.minPlatform},
      {kMaxPlatform, run.request.maxPlatform},
      {kExcludedDevices, run.request.excludedDevices},
      {"//Description", run.request.description}};
  for (const auto& [xpath, value] : properties) {
    if (value && !updateAppWEXProperty(manifest, xpath, value, run.context.loggers.manifest)) {
      return false;
    }
  }
  return true;
}

bool doEmbedBundle(const Run& run, const std::optional<std::string>& bundlePath,
                   const UnzippedCma& package) {
  constexpr char kOperation[] = "doEmbedBundle:cmaObj:";
  run.log().logDetailed("embedding bundle.");
  if (!bundlePath) {
    systemLog(fmt::format("{}: Error: embedBundle: bundle path nil.", kOperation));
    run.log().logError("Error: embedBundle: bundle path nil.");
    return false;
  }
  if (!fileExists(*bundlePath)) {
    run.log().logError("Error: embedBundle: bunlde does not exist.");
    return false;
  }
  if (!removeIpas(run.log(), package.tempDir())) return false;

  const std::string name = lastPathComponent(*bundlePath);
  ErrorText reason;
  if (!copyUnderName(*bundlePath, package.tempDir(), name, &reason)) {
    systemLog(fmt::format("{}: embedBundle: copy failed. error={}.", kOperation, reason.text()));
    run.log().logError(fmt::format("Error: embedBundle: copy failed. error={}.", reason.text()));
    return false;
  }
  if (!removeAppStoreURL(package.manifestxmlPath(), run.context.loggers.manifest)) {
    systemLog("Error: embedBundle: removeAppStoreURL failed.");
    run.log().logError(
        fmt::format("Error: embedBundle: removeAppStoreURL failed. error={}", shown(std::nullopt)));
    return false;
  }
  if (!updateManifestFile(package.manifestxmlPath(), name, run.context.loggers.manifest)) {
    run.log().logError("Error: embedBundle: update BundleFile failed.");
    return false;
  }
  run.log().logDetailed("embed bundle success.");
  return true;
}

}  // namespace tovrek::converter
