// The shorter flows: signing the app of a package anew, changing a package's manifest, and
// placing the management files into an app that was built with our SDK.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <set>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "converter/wrap_run.h"
#include "formats/XmlDocument.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "package/UnzippedCma.h"
#include "package/archive_folder.h"
#include "package/embedded_profile.h"
#include "package/manifest_edits.h"
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

// A package that we made has this one; else it is the first, as for every reader of packages.
std::string manifestIn(const std::string& folder) {
  const std::string usual = joinPath(folder, "manifest.xml");
  const auto first = firstEntryWithExtension(folder, "xml");
  return isPlainFile(usual) || !first ? usual : joinPath(folder, *first);
}

std::set<std::string> languageFilesOf(const std::string& manifest) {
  std::set<std::string> names;
  const auto document = XmlDocument::readFile(manifest);
  const auto nodes =
      document ? document->find("/MobileAppPackage/Policies/Languages/LanguageFile") : std::nullopt;
  if (!nodes) return names;
  for (const XmlNode& node : *nodes) names.insert(trimmed(node.text()));
  return names;
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
  if (settings_.refreshOnResign) moveLanguageFiles(scratch, packageDir);
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
  if (!prepared || !signAgain(run, error)) return false;
  progressor_.SetProgress("Generating ipa file...");
  if (!ZipToIpaFromWex(scratch, *package, packageDir, error)) return false;
  if (settings_.refreshOnResign) renewManifest(run, package->ipaName());
  progressor_.SetProgress("Generating package file...");
  return ZiptoPackage(packageDir, error);
}

void AppConverter::moveLanguageFiles(const std::string& from, const std::string& to) {
  const std::set<std::string> listed = languageFilesOf(manifestIn(to));
  const auto names = listDirectory(from);
  if (!names) return;
  for (const std::string& name : *names) {
    const bool isOne = listed.contains(name) || name.starts_with("strings-");
    // These two belong to the app.
    const bool isOfApp = name.starts_with("iTunes") || pathExtension(name) == "ipa";
    if (!isOne || isOfApp || !isPlainFile(joinPath(from, name))) continue;
    if (moveItem(joinPath(from, name), joinPath(to, name))) {
      logger().logBasic("refreshOnResign keeps the language file " + name);
    }
  }
}

void AppConverter::renewManifest(const WrapRun& run, const std::string& ipaName) {
  const std::string& folder = run.directory->packageDir();
  const std::string manifest = manifestIn(folder);
  const std::string date = dateDescription(currentTime());
  const std::string expiry = profileExpiry(run.appPath, Global_ManifestLib_logger()).value_or(date);
  const auto set = [&](const char* xpath, const std::string& value) {
    return updateAppWEXProperty(manifest, xpath, value, Global_ManifestLib_logger());
  };
  const std::pair<const char*, bool> elements[] = {
      {"Date", set("/MobileAppPackage/PackageInfo/Date", date)},
      {"CertExpires", set("/MobileAppPackage/PackageInfo/CertExpires", expiry)},
      {"PackageSize",
       ModifyPackageSize(manifest, joinPath(folder, ipaName), "", Global_ManifestLib_logger())}};
  std::vector<std::string_view> renewed;
  for (const auto& [name, succeeded] : elements) {
    if (succeeded) {
      renewed.push_back(name);
    } else {
      logger().logWarning(fmt::format("refreshOnResign could not renew {} in {}", name,
                                      lastPathComponent(manifest)));
    }
  }
  if (renewed.empty()) return;
  logger().logBasic(fmt::format("refreshOnResign renews {} in {}", fmt::join(renewed, ", "),
                                lastPathComponent(manifest)));
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
      !UpdateAppStoreURL(manifest, *converterParam_.appStoreUrl, Global_ManifestLib_logger())) {
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
    if (value && !updateAppWEXProperty(manifest, xpath, value, Global_ManifestLib_logger()))
      return false;
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
  if (!removeAppStoreURL(package.manifestxmlPath(), Global_ManifestLib_logger())) {
    systemLog("Error: embedBundle: removeAppStoreURL failed.");
    logger().logError(
        fmt::format("Error: embedBundle: removeAppStoreURL failed. error={}", shown(std::nullopt)));
    return false;
  }
  if (!updateManifestFile(package.manifestxmlPath(), name, Global_ManifestLib_logger())) {
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
