// The shorter flows: signing the app of a package anew, changing a package's manifest, and
// placing the management files into an app that was built with our SDK.
#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "converter/wrap_run.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/HelperMethods.h"
#include "package/UnzippedCma.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek {

using namespace converter;

namespace {

enum SdkOperation { kSetStoreUrl = 1, kEmbedBundle = 2 };

constexpr char kMinPlatform[] = "//MinPlatform[@CRKW='MamMinPlatform']";
constexpr char kMaxPlatform[] = "//MaxPlatform[@CRKW='MamMaxPlatform']";
constexpr char kExcludedDevices[] = "//ExcludeDeviceTypes[@CRKW='MamExcludeDeviceTypes']";

// Everything of the unpacked package but the app goes over as it is.
void moveMetadata(const std::string& from, const std::string& to) {
  const auto names = listDirectory(from);
  if (!names) return;
  for (const std::string& name : *names) {
    const std::string extension = toLowerAscii(pathExtension(name));
    if (extension != "xml" && extension != "png") continue;
    const std::string source = joinPath(from, name);
    const std::string target = joinPath(to, name);
    systemLog(fmt::format("Copying file {} to {} ", source, target));
    moveItem(source, target);
  }
}

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

bool removeIpas(const std::string& folder) {
  const auto names = listDirectory(folder);
  if (!names) {
    logger().logError("Error: embedBundle: failed to enumerate current contents.");
    return false;
  }
  for (const std::string& name : *names) {
    if (pathExtension(name) != "ipa") continue;
    const std::string path = joinPath(folder, name);
    logger().logBasic(fmt::format("embedBundle: Will remove existing ipa {}.", path));
    if (!removeItem(path)) {
      logger().logError(fmt::format("Error: embedBundle: failed to remove previous ipa {}.", path));
      return false;
    }
  }
  return true;
}

}  // namespace

bool AppConverter::openPackage(WrapRun* run, std::shared_ptr<UnzippedCma>* package,
                               ErrorText* error) {
  run->directory = std::make_shared<TemporaryDirectory>();
  if (!run->directory->Create(error)) return false;
  *package = UnzippedCma::UnzippedIpaObjForInputFile(converterParam_.inputFile.value_or(""),
                                                     run->directory.get(), error);
  if (!*package) return false;
  run->appPath = (*package)->appPath();
  run->bundle = AppBundle::open(run->appPath);
  return refuseLinksOutside(run->directory->tempDir(), error) &&
         emptyPackageFolder(*run->directory, error);
}

bool AppConverter::CreatePackageFromWex(ErrorText* error) {
  progressor_.SetProgress("Unzipping...");
  WrapRun run;
  std::shared_ptr<UnzippedCma> package;
  if (!openPackage(&run, &package, error)) return false;
  const std::string& scratch = run.directory->tempDir();
  const std::string& packageDir = run.directory->packageDir();
  moveMetadata(scratch, packageDir);
  removeItem(package->ipaPath());

  // The profile is matched against the identifier that the app has.
  if (run.bundle) takeBundleIdentifiers(run);
  run.profile = ProvisioningProfile::extractProvisioningProfileData(
      converterParam_.provisionProfile.value_or(""), error);
  if (!generateNewEntitlement(&run.entitlementPath, run.profile, scratch, run.appPath, error)) {
    return false;
  }
  progressor_.SetProgress("Copying resource files...");
  if (!replaceProvisioningProfileAtDir(run.appPath, error)) return false;
  progressor_.SetProgress("Code signing...");
  if (!verifyCodeSigningPrerequisites(run.appPath, run.entitlementPath, error)) return false;
  const bool prepared = package->isSDKApp() ? stampSdkApp(run, error) : signDylib(run, error);
  if (!prepared || !CodeSign(run.appPath, run.entitlementPath, error)) return false;
  progressor_.SetProgress("Generating ipa file...");
  if (!ZipToIpaFromWex(scratch, *package, packageDir, error)) return false;
  progressor_.SetProgress("Generating package file...");
  return ZiptoPackage(packageDir, error);
}

bool AppConverter::stampSdkApp(WrapRun& run, ErrorText* error) {
  if (!run.bundle) {
    logger().logError("Failed to get the input app NSBundle object.");
    return false;
  }
  checkIfAppBundle(*run.bundle, &run.inspection);
  const bool hasFips = run.inspection.hasWEXSDKFramework && run.inspection.hasOpenSSLFIPSModule;
  return !hasFips || EmbedOpenSSLFipsFingerprint(run.appPath, error);
}

bool AppConverter::updatePackage(ErrorText* error) {
  TemporaryDirectory directory;
  if (!extractAndUpdateWexPackageInTempDir(directory, error)) return false;
  progressor_.SetProgress("Generating package file...");
  return ZiptoPackage(directory.tempDir(), error);
}

bool AppConverter::extractAndUpdateWexPackageInTempDir(TemporaryDirectory& directory,
                                                       ErrorText* error) {
  if (!directory.CreateTempDirForCma(error)) return false;
  const auto package = UnzippedCma::initWithCma(converterParam_.inputFile.value_or(""), directory);
  return package->Unzip(error) && updateWEXpackage(*package);
}

bool AppConverter::updateWEXpackage(const UnzippedCma& package) {
  logger().logDetailed(fmt::format("Updating. sdkOp={}.", converterParam_.sdkOp));
  if (converterParam_.appSpecificPolicyFilepath) {
    logger().logWarning(fmt::format("The policy file {} is not used when a package is updated.",
                                    *converterParam_.appSpecificPolicyFilepath));
  }
  const std::string& manifest = package.manifestxmlPath();
  if (converterParam_.sdkOp == kSetStoreUrl && converterParam_.appStoreUrl &&
      !HelperMethods::UpdateAppStoreURL(manifest, *converterParam_.appStoreUrl)) {
    logger().logDetailed("Error: update app store url failed.");
    return false;
  }
  if (converterParam_.sdkOp == kEmbedBundle &&
      !doEmbedBundle(converterParam_.embedBundlePath, package)) {
    logger().logDetailed("Error: embed bundle failed.");
    return false;
  }
  const std::pair<const char*, const std::optional<std::string>&> properties[] = {
      {kMinPlatform, converterParam_.minPlatform},
      {kMaxPlatform, converterParam_.maxPlatform},
      {kExcludedDevices, converterParam_.excludedDevices},
      {"//Description", converterParam_.description}};
  for (const auto& [xpath, value] : properties) {
    if (value && !HelperMethods::updateAppWEXProperty(manifest, xpath, value)) return false;
  }
  return true;
}

bool AppConverter::doEmbedBundle(const std::optional<std::string>& bundlePath,
                                 const UnzippedCma& package) {
  constexpr char kOperation[] = "doEmbedBundle:cmaObj:";
  logger().logDetailed("embedding bundle.");
  if (!bundlePath) {
    systemLog(fmt::format("{}: Error: embedBundle: bundle path nil.", kOperation));
    logger().logError("Error: embedBundle: bundle path nil.");
    return false;
  }
  if (!fileExists(*bundlePath)) {
    logger().logError("Error: embedBundle: bunlde does not exist.");
    return false;
  }
  if (!removeIpas(package.tempDir())) return false;

  const std::string name = lastPathComponent(*bundlePath);
  ErrorText reason;
  if (!copyUnderName(*bundlePath, package.tempDir(), name, &reason)) {
    systemLog(fmt::format("{}: embedBundle: copy failed. error={}.", kOperation, reason.text()));
    logger().logError(fmt::format("Error: embedBundle: copy failed. error={}.", reason.text()));
    return false;
  }
  if (!HelperMethods::removeAppStoreURL(package.manifestxmlPath())) {
    systemLog("Error: embedBundle: removeAppStoreURL failed.");
    logger().logError(
        fmt::format("Error: embedBundle: removeAppStoreURL failed. error={}", shown(std::nullopt)));
    return false;
  }
  if (!HelperMethods::updateManifestFile(package.manifestxmlPath(), name)) {
    logger().logError("Error: embedBundle: update BundleFile failed.");
    return false;
  }
  logger().logDetailed("embed bundle success.");
  return true;
}

bool AppConverter::EmbedResourcesIntoApp(ErrorText* error) {
  WrapRun run;
  run.appPath = converterParam_.inputFile.value_or("");
  run.bundle = AppBundle::open(run.appPath);
  if (!run.bundle) {
    logger().logError("Failed to get the input app NSBundle object.");
    return false;
  }
  if (!checkSdkApp(run, error) || !refuseLinksOutside(run.appPath, error) ||
      !embedManagementFiles(run, error)) {
    return false;
  }

  run.policyLanguages = findPolicyLanguages();
  takeBundleIdentifiers(run);
  run.directory = std::make_shared<TemporaryDirectory>();
  if (!run.directory->Create(error) ||
      !copyPolicyXMLToDir(run.directory->packageDir(), run.appPath, run.policyLanguages, error,
                          converterParam_)) {
    return false;
  }
  nameOutput(&run);
  if (!buildManifest(&run, error)) return false;
  if (converterParam_.isResign && !removeOldOutput(error)) return false;
  const BundleInspection& found = run.inspection;
  if (found.hasWEXSDKFramework && found.hasOpenSSLFIPSModule && !found.hasMAMSDKFrameworks &&
      !EmbedOpenSSLFipsFingerprint(run.appPath, error)) {
    return false;
  }
  if (run.manifest) completeManifest(run, run.appPath);
  progressor_.SetProgress("Generating package file...");
  return ZiptoPackage(run.directory->packageDir(), error);
}

bool AppConverter::checkSdkApp(WrapRun& run, ErrorText* error) {
  ErrorText reason;
  const auto failLogged = [&] {
    logger().logError(reason.text());
    return fail(error, reason.text());
  };
  if (!machOCheckDylibLoadOrder(run.appPath, 0, &reason)) return failLogged();
  checkIfAppBundle(*run.bundle, &run.inspection);
  if (converterParam_.entitlementsPath &&
      !checkWexKeychainEntitlementInFile(*converterParam_.entitlementsPath, &reason)) {
    return failLogged();
  }
  return true;
}

bool AppConverter::embedManagementFiles(const WrapRun& run, ErrorText* error) {
  if (converterParam_.appMode == "5") return true;
  progressor_.SetProgress("Copying resource files...");
  const std::string source = contentFile("Orvane.bundle");
  const std::string target = joinPath(run.appPath, "OrvaneDylib.bundle");
  systemLog("Orvane Bundle: Copying " + source);
  return copyOrvaneBundle(source, target, error) && makeFrameworksFolder(run.appPath, error) &&
         copyNib(target, run.appPath, error) && checkLogger(error) &&
         copyLogger(run.appPath, error);
}

}  // namespace tovrek
