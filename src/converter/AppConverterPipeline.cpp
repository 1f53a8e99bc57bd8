// The road from an unpacked app to its package. CreatePackage is the list of the steps; their
// order matters: all that may refuse an app comes before the first change to it, and all that
// changes its files before the signatures.
#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "converter/wrap_run.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "package/ManifestData.h"
#include "package/intune_detection.h"
#include "package/manifest_edits.h"
#include "profile/ProvisioningProfile.h"
#include "tools/XcrunHelper.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr int kBinaryTypeApplication = 2;
constexpr char kLoggerFramework[] = "WEXSDK/OrvaneLogger.framework";

WexManifestAppInfo manifestAppInfo(const AppConverterParam& param,
                                   const std::optional<AppBundle>& bundle,
                                   const std::string& appMode) {
  WexManifestAppInfo info;
  info.ipaFilename = param.outputIPAFileName.value_or("");
  info.appBundle = bundle;
  if (param.isSDK && !param.packageApp) info.appStoreURL = manifestStoreUrl(param.appStoreUrl);
  info.appMode = appMode;
  info.isIntuneApp = detectIntuneInAppBundle(bundle ? bundle->path() : "", param.entitlementsPath,
                                             Global_ManifestLib_logger());
  info.description = param.description;
  info.packageId = param.packageId;
  info.teamId = param.teamId;
  info.adalClientId = param.adalClientId;
  info.adalNSGResource = param.adalNSGResource;
  return info;
}

}  // namespace

bool AppConverter::CreatePackage(ErrorText* error) {
  progressor_.SetProgress("Unzipping...");
  if ((isSDK_ && isUpdate_) || converterParam_.isSetInfoCommand) return updatePackage(error);

  WrapRun run;
  if (!openInput(&run, error) || !checkEligibility(&run, error)) return false;
  takeBundleIdentifiers(run);
  if (!decodeProfile(&run, error) || !makeEntitlements(&run, error)) return false;
  stripOrReportExtensions(run, error);
  checkCertificate(run, error);
  if (!insertManagementFiles(run, error) || !rebuildExecutable(run, error)) return false;
  changeBundleIdentifier(run);
  if (!placeResources(&run, error)) return false;
  nameOutput(&run);
  return buildManifest(&run, error) && signAll(run, error) && writeIpa(run, error) &&
         copyOutputBundle(run, error) &&
         (converterParam_.isResign ? deliverResigned(run, error) : writePackage(run, error));
}

bool AppConverter::openInput(WrapRun* run, ErrorText* error) {
  run->directory = converterParam_.unzippedInputDirObj;
  if (!converterParam_.unzippedIpaInstance) {
    run->directory.reset();
    converterParam_.unzippedIpaInstance =
        unzipIpa(converterParam_.inputFile, &run->directory, error);
    if (!converterParam_.unzippedIpaInstance) return false;
  }
  // An .app is unpacked without a folder.
  if (!run->directory) run->directory = std::make_shared<TemporaryDirectory>();
  if (!run->directory->created() && !run->directory->Create(error)) return false;

  run->appPath = converterParam_.unzippedIpaInstance->appPath();
  run->payloadDir = converterParam_.unzippedIpaInstance->payloadDir();
  run->bundle = AppBundle::open(run->appPath);
  if (!run->bundle) {
    logger().logError("Failed to get the input app file NSBundle object.");
    return fail(error, "Failed to get the input app file NSBundle object.");
  }
  if (!refuseLinksOutside(run->appPath, error)) return false;
  if (!emptyPackageFolder(*run->directory, error)) return false;
  checkIfAppBundle(*run->bundle, &run->inspection);
  return true;
}

bool AppConverter::refuseLinksOutside(const std::string& folder, ErrorText* error) {
  const auto link = linkLeadingOutside(folder);
  if (!link) return true;
  const std::string text = fmt::format("The input holds a link that leads out of it: {}", *link);
  logger().logError(text);
  return fail(error, text);
}

bool AppConverter::emptyPackageFolder(const TemporaryDirectory& directory, ErrorText* error) {
  // What an archive unpacked there is not to get into the package.
  ErrorText reason;
  const std::string& folder = directory.packageDir();
  if (removeItem(folder, &reason) && createDirectories(folder, &reason)) return true;
  return fail(
      error, fmt::format("Failed to empty the package folder {}. Error:{}", folder, reason.text()));
}

bool AppConverter::mayBeWrappedAlready(WrapRun* run, ErrorText* error) {
  ErrorText reason;
  if (!verifyIfApplicationIsAlreadyWrapped(*run->bundle, &reason)) return true;
  run->isRenewal = converterParam_.isResign && settings_.resignWrapped;
  if (converterParam_.isResign) {
    logger().logBasic(fmt::format("resignWrapped {} {}, which is wrapped already",
                                  run->isRenewal ? "signs" : "would sign", run->appPath));
  }
  return run->isRenewal || fail(error, reason.text());
}

bool AppConverter::checkEligibility(WrapRun* run, ErrorText* error) {
  if (!isSDK_) {
    if (run->inspection.hasWEXSDKFramework) {
      fail(error, "ERROR: This app is already linked against the TelvoSDK, and cannot be wrapped.");
      logger().logError("This Application is an SDK app");
      return false;
    }
    if (!mayBeWrappedAlready(run, error)) {
      logger().logError("This Application is already wrapped");
      return false;
    }
  }
  if (doesApplicationSupportAdobeAir(run->appPath, error)) {
    logger().logError(
        "WEX does not support wrapping applications created using the Adobe Air framework.");
    return false;
  }
  if (!verifyIfApplicationIsAppStoreApp(*run->bundle, error)) {
    logger().logError("This Application is an App Store app");
    return false;
  }
  if (!verifyIfItNotANativeiOSApp(run->appPath, error)) {
    logger().logWarning("This Application does not seems to be a standard native iOS app. ");
  }
  return true;
}

void AppConverter::takeBundleIdentifiers(const WrapRun& run) {
  const PlistDictionary info = run.bundle->infoPlist();
  const std::string* identifier = stringForKey(info, "CFBundleIdentifier");
  converterParam_.originalBundleID = identifier ? std::optional(*identifier) : std::nullopt;
  if (isEmpty(converterParam_.replacementBundleID)) {
    converterParam_.replacementBundleID = converterParam_.originalBundleID;
  }
}

bool AppConverter::decodeProfile(WrapRun* run, ErrorText* error) {
  run->profile = ProvisioningProfile::extractProvisioningProfileData(
      converterParam_.provisionProfile.value_or(""), error);
  // One that could not be decoded has no date, and fails with the entitlements.
  const PlistValue* expiry = run->profile ? run->profile->find("ExpirationDate") : nullptr;
  if (!expiry || !expiry->date() || expiry->date()->secondsSince1970 >= currentTime()) return true;
  const std::string text =
      "This provisioning profile has expired. Please use a valid provisioning profile.";
  logger().logError(text);
  return fail(error, text);
}

void AppConverter::stripOrReportExtensions(const WrapRun& run, ErrorText* error) {
  for (const char* name : {"PlugIns", "Watch"}) {
    const std::string folder = joinPath(run.appPath, name);
    if (!fileExists(folder)) continue;
    if (keepsExtensions()) {
      logger().logBasic("keepExtensionsOnSign keeps the extensions at path " + folder);
      continue;
    }
    if (converterParam_.stripExtensions) {
      logger().logBasic("Stripping extensions at path " + folder);
      removeItem(folder);
      continue;
    }
    const std::string text =
        "WARNING: The created package includes one or more app extensions that have been re-signed "
        "to permit app installation.  These extensions are NOT likely to function properly.";
    logger().logBasic(text);
    fail(error, text);
  }
}

void AppConverter::checkCertificate(const WrapRun& run, ErrorText* error) {
  const std::string certificate = converterParam_.certificate.value_or("");
  if (checkForDuplicateCertificates(certificate, error)) {
    logger().logError(error ? error->text() : "");
  }
  if (run.profile) {
    ProvisioningProfile::validateForiOS8Certificate(certificate, *run.profile, error);
  }
}

bool AppConverter::chooseSourceBundle(std::string* source, ErrorText* error) {
  if (isSDK_) {
    *source = contentFile("Orvane.bundle");
    return true;
  }
  *source = contentFile(converterParam_.useNetworkOnlyLib ? "OrvaneNetworkOnlyDylib.bundle"
                                                          : "OrvaneDylib.bundle");
  return checkOrvaneDylib(joinPath(*source, "OrvaneDylib.dylib"), error);
}

bool AppConverter::copyNib(const std::string& sourceBundle, const std::string& appPath,
                           ErrorText* error) {
  constexpr char kNib[] = "AppLoaderViewController.nib";
  const std::string nib = joinPath(joinPath(sourceBundle, "WexAssets.bundle"), kNib);
  return !fileExists(nib) || copyOrvaneBundle(nib, joinPath(appPath, kNib), error);
}

bool AppConverter::makeFrameworksFolder(const std::string& appPath, ErrorText* error) {
  const std::string frameworks = joinPath(appPath, "Frameworks");
  return isDirectory(frameworks) || createAppBundleFrameworksSubdirectory(frameworks, error);
}

bool AppConverter::copyLogger(const std::string& appPath, ErrorText* error) {
  return copyOrvaneLoggerFramework(contentFile(kLoggerFramework),
                                   joinPath(appPath, "Frameworks/OrvaneLogger.framework"), error);
}

bool AppConverter::checkLogger(ErrorText* error) {
  return checkOrvaneLoggerDylib(joinPath(contentFile(kLoggerFramework), "OrvaneLogger"), error);
}

bool AppConverter::insertManagementFiles(const WrapRun& run, ErrorText* error) {
  if (converterParam_.isResign) return true;
  progressor_.SetProgress("Validating dylib...");
  std::string source;
  return chooseSourceBundle(&source, error) &&
         copyOrvaneBundle(source, joinPath(run.appPath, "OrvaneDylib.bundle"), error) &&
         copyNib(source, run.appPath, error) && checkLogger(error) &&
         makeFrameworksFolder(run.appPath, error) && copyLogger(run.appPath, error);
}

bool AppConverter::rebuildExecutable(const WrapRun& run, ErrorText* error) {
  if (!AppConverterParam::verifyIfOSVerisonIsMavericksandAbove()) {
    logger().logWarning(
        "WARNING: OS version is below 10.9 so arm64 extraction will not work. If wrapping a binary "
        "with arm64 that needs to be extracted, you need to update to 10.9 or above and get the "
        "command line tools");
  }
  if (converterParam_.isResign) return true;
  progressor_.SetProgress("Rebuilding app...");
  return isSDK_ || MachORebuild(run.appPath, kBinaryTypeApplication,
                                converterParam_.useNetworkOnlyLib ? 1 : 0, error);
}

void AppConverter::changeBundleIdentifier(const WrapRun& run) {
  // It stays, and so must the record of the one that the app had before it was wrapped.
  if (run.isRenewal) return;
  progressor_.SetProgress("Replacing bundle identifier...");
  logger().logBasic("Replacing bundle identifier with " +
                    shown(converterParam_.replacementBundleID));
  doAppBundleIDChange(converterParam_.replacementBundleID, run.payloadDir);
}

std::vector<std::string> AppConverter::findPolicyLanguages() const {
  std::vector<std::string> languages;
  const auto names = listDirectory(contentPath_);
  if (!names) return languages;
  for (const std::string& name : *names) {
    if (name.starts_with("strings-")) languages.push_back(name);
  }
  return languages;
}

bool AppConverter::placeResources(WrapRun* run, ErrorText* error) {
  progressor_.SetProgress("Copying resource files...");
  if (!replaceProvisioningProfileAtDir(run->appPath, error)) return false;
  run->policyLanguages = findPolicyLanguages();
  return converterParam_.isResign ||
         copyPolicyXMLToDir(run->directory->packageDir(), run->appPath, run->policyLanguages, error,
                            converterParam_);
}

void AppConverter::nameOutput(WrapRun* run) {
  const auto& output = converterParam_.outputFile;
  const bool besideOutput = isSDK_ && !converterParam_.packageApp && output;
  run->ipaFolder = besideOutput ? containingFolder(*output) : run->directory->packageDir();
  std::string name =
      lastPathComponent(besideOutput ? *output : converterParam_.inputFile.value_or(""));
  if (isSDK_) name = deletingPathExtension(name) + "_SDK.ipa";
  converterParam_.outputIPAFileName = name;
  run->targetIpaPath = joinPath(run->ipaFolder, name);
}

std::string AppConverter::manifestAppMode() const {
  const std::string appMode = converterParam_.appMode.value_or("");
  return isSDK_ || !isEmpty(converterParam_.outputBundleFile) ? appMode : std::string();
}

bool AppConverter::buildManifest(WrapRun* run, ErrorText* error) {
  if (converterParam_.isResign) return true;
  progressor_.SetProgress("Generating manifest xml...");
  const std::string& packageDir = run->directory->packageDir();
  run->context.loggers = {Global_Commandline_Logger(), logger(), Global_ManifestLib_logger()};
  const ManifestFiles files{packageDir, joinPath(packageDir, "manifest.xml"), run->policyLanguages};
  run->manifest = std::make_unique<ManifestLibInterface>(
      manifestAppInfo(converterParam_, run->bundle, manifestAppMode()), files, run->context);
  if (run->manifest->buildManifestXml() != 0) {
    return fail(error, "Failed to generate this file: manifest.xml");
  }
  progressor_.SetProgress("Copying icon files...");
  const int result = run->manifest->copyIconFiles();
  // Icons are not worth a failed run.
  if (result != 0) fail(error, fmt::format("Failed to extract icon files. Error:{}", result));
  return true;
}

bool AppConverter::failSigning(const char* reason) {
  logger().logError(reason);
  if (!isCmdLineToolInstalled()) {
    logger().logError(
        "You may need to install the command line tools. Please download the optional Command Line "
        "Tools installation from the 'Xcode' menu > Preferences > Download section in Xcode. ");
  }
  return false;
}

bool AppConverter::signDylib(const WrapRun& run, ErrorText* error) {
  return CodeSignOrvaneDylib(run.appPath, error) || failSigning("Codesign fails.");
}

bool AppConverter::signInsertedParts(const WrapRun& run, ErrorText* error) {
  if (!isSDK_ && !signDylib(run, error)) return false;
  if (!CodeSignFrameworks(run.appPath, error)) {
    return failSigning("Codesign of embedded frameworks failed");
  }
  if (!converterParam_.stripExtensions && !CodeSignExtensions(run.appPath, error)) {
    return failSigning("Codesign of extensions failed");
  }
  const bool hasFips = run.inspection.hasWEXSDKFramework && run.inspection.hasOpenSSLFIPSModule;
  return !isSDK_ || !hasFips || EmbedOpenSSLFipsFingerprint(run.appPath, error);
}

bool AppConverter::signAll(const WrapRun& run, ErrorText* error) {
  progressor_.SetProgress("Code signing...");
  return verifyCodeSigningPrerequisites(run.appPath, run.entitlementPath, error) &&
         (converterParam_.isResign
              ? (!run.isRenewal || signDylib(run, error)) && signAgain(run, error)
              : signInsertedParts(run, error) && CodeSign(run.appPath, run.entitlementPath, error));
}

bool AppConverter::writeIpa(const WrapRun& run, ErrorText* error) {
  progressor_.SetProgress("Generating ipa file...");
  if (isSDK_ && isInputApp_) {
    XcrunHelper packager;
    packager.appBundlePath = converterParam_.inputFile;
    packager.codeSignCert = converterParam_.certificate;
    packager.embeddedProfilePath = converterParam_.provisionProfile;
    packager.outPackagePath = run.targetIpaPath;
    return packager.StartXCRun(error);
  }
  return ZipToIpa(converterParam_.outputIPAFileName.value_or(""), run.directory->tempDir(),
                  run.ipaFolder, error);
}

bool AppConverter::copyOutputBundle(const WrapRun& run, ErrorText* error) {
  const auto& output = converterParam_.outputBundleFile;
  if (!converterParam_.isWrapCommand || !output) return true;
  if (isInput(*output)) return replaceInput(run.targetIpaPath, *output, error);
  if (isPlainFile(*output)) {
    removeItem(*output);
    logger().logWarning(
        "WARNING! The target bundle output file already exists. Deleting original file.");
  }
  return copyOrFail(run.targetIpaPath, *output, error);
}

void AppConverter::completeManifest(WrapRun& run, const std::string& ipaPath) {
  run.manifest->GeneratePackageSizeWithIpaFile(ipaPath);
  ManifestData data(converterParam_.appFriendlyName);
  data.minPlatform = converterParam_.minPlatform;
  data.maxPlatform = converterParam_.maxPlatform;
  data.excludedDevices = converterParam_.excludedDevices;
  data.keepsOthers = converterParam_.isWrapCommand && settings_.keepPlistLimits;
  const std::string manifest = joinPath(run.directory->packageDir(), "manifest.xml");
  if (!UpdateManifestFileAsPerUserSelection(manifest, data, Global_ManifestLib_logger())) {
    logger().logWarning("Failed to update manifest.xml with additional metadata. ");
  }
}

bool AppConverter::writePackage(WrapRun& run, ErrorText* error) {
  const std::string& packageDir = run.directory->packageDir();
  const bool isPublished = isSDK_ && !converterParam_.packageApp;
  completeManifest(
      run, isPublished ? "" : joinPath(packageDir, converterParam_.outputIPAFileName.value_or("")));
  if (!converterParam_.outputFile) return true;
  progressor_.SetProgress("Generating package file...");
  return ZiptoPackage(packageDir, error);
}

bool AppConverter::removeOldOutput(ErrorText* error) {
  const std::string output = converterParam_.outputFile.value_or("");
  ErrorText reason;
  if (!isPlainFile(output) || removeItem(output, &reason)) return true;
  return fail(error, fmt::format("Failed to remove _CodeSignature. Error:{}", reason.text()));
}

bool AppConverter::deliverResigned(const WrapRun& run, ErrorText* error) {
  if (run.targetIpaPath.empty()) {
    systemLog("targetIpaPath is nil. Command line parameter error?");
    return fail(error, "A required file at this location does not exist: ");
  }
  const std::string output = converterParam_.outputFile.value_or("");
  if (isInput(output)) return replaceInput(run.targetIpaPath, output, error);
  return removeOldOutput(error) && copyOrFail(run.targetIpaPath, output, error);
}

}  // namespace tovrek
