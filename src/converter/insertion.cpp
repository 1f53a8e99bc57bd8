#include "converter/insertion.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "converter/library_check.h"
#include "converter/steps.h"
#include "engine/MachORebuilder.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "tools/host_checks.h"

namespace tovrek::converter {

bool copyOrvaneBundle(const WrapperLogger& log, const std::string& from, const std::string& to,
                      ErrorText* error) {
  if (itemExistsNoFollow(to)) {
    log.logWarning(
        fmt::format("Orvane Bundle already exists in the app at {}. The app has been previously "
                    "processed by Orvane. Simply replacing it...",
                    to));
  }
  if (!replaceByCopy(from, to, error)) return false;
  log.logBasic(fmt::format("Log: Successfully copied OrvaneDyLib from {} to : {}", from, to));
  return true;
}

bool copyOrvaneLoggerFramework(const WrapperLogger& log, const std::string& from,
                               const std::string& to, ErrorText* error) {
  if (itemExistsNoFollow(to)) {
    log.logWarning(fmt::format(
        "Orvane Logger Framework already exists in the app at {}. Simply replacing it...", to));
  }
  if (!replaceByCopy(from, to, error)) return false;
  log.logBasic(fmt::format("Log: Successfully copied OrvaneLogger from {} to : {}", from, to));
  return true;
}

bool createAppBundleFrameworksSubdirectory(const WrapperLogger& log, const std::string& path,
                                           ErrorText* error) {
  ErrorText reason;
  if (!createDirectories(path, &reason)) {
    return fail(error,
                fmt::format("Failed to create application bundle Frameworks subdirectory. Error:{}",
                            reason.text()));
  }
  log.logBasic("Log: Successfully created application bundle Frameworks subdirectory");
  return true;
}

bool replaceProvisioningProfileAtDir(const Run& run, const std::string& appPath, ErrorText* error) {
  const std::string source = run.request.provisionProfile.value_or("");
  const std::string destination = joinPath(appPath, "embedded.mobileprovision");
  systemLog(fmt::format("unzip location {}; destination {}; source {}.", appPath, destination,
                        shown(run.request.provisionProfile)));
  if (!fileExists(source)) return failMissingFile(error, source);
  return replaceByCopy(source, destination, error);
}

namespace {

std::string executableOf(const std::string& bundlePath) {
  const auto bundle = AppBundle::open(bundlePath);
  return bundle ? bundle->executablePath().value_or("") : std::string();
}

// The engine clears its slot after a success; warnings of earlier steps are to stay.
bool keepingWarnings(bool succeeded, const ErrorText& reason, ErrorText* error) {
  if (!succeeded && error != nullptr) *error = reason;
  return succeeded;
}

bool copyNib(const Run& run, const std::string& sourceBundle, ErrorText* error) {
  constexpr char kNib[] = "AppLoaderViewController.nib";
  const std::string nib = joinPath(joinPath(sourceBundle, "WexAssets.bundle"), kNib);
  return !fileExists(nib) || copyOrvaneBundle(run.log(), nib, joinPath(run.appPath, kNib), error);
}

bool insertBundle(const Run& run, const std::string& source, ErrorText* error) {
  return copyOrvaneBundle(run.log(), source, joinPath(run.appPath, "OrvaneDylib.bundle"), error) &&
         copyNib(run, source, error);
}

bool makeFrameworksFolder(const Run& run, ErrorText* error) {
  const std::string frameworks = joinPath(run.appPath, "Frameworks");
  return isDirectory(frameworks) ||
         createAppBundleFrameworksSubdirectory(run.log(), frameworks, error);
}

}  // namespace

bool MachORebuild(const Run& run, const std::string& bundlePath, ExecutableKind kind,
                  ErrorText* error) {
  MachORebuilder rebuilder(run.context.settings);
  ErrorText reason;
  const bool succeeded = rebuilder.initWithBinaryType(
      static_cast<int>(kind), run.request.library == LibraryKind::kNetworkOnly,
      executableOf(bundlePath), run.context.loggers.toolkit, &reason);
  return keepingWarnings(succeeded, reason, error);
}

bool machOCheckDylibLoadOrder(const Run& run, const std::string& bundlePath, LibraryKind library,
                              ErrorText* error) {
  MachORebuilder rebuilder(run.context.settings);
  ErrorText reason;
  const bool succeeded =
      rebuilder.initForLibraryType(library == LibraryKind::kNetworkOnly, executableOf(bundlePath),
                                   run.context.loggers.toolkit, &reason);
  return keepingWarnings(succeeded, reason, error);
}

bool insertLibrary(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Validating dylib...");
  const bool isNetworkOnly = run.request.library == LibraryKind::kNetworkOnly;
  const std::string source =
      run.contentFile(isNetworkOnly ? "OrvaneNetworkOnlyDylib.bundle" : "OrvaneDylib.bundle");
  return checkOrvaneDylib(joinPath(source, "OrvaneDylib.dylib"), error) &&
         insertBundle(run, source, error);
}

bool insertSdkResources(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Validating dylib...");
  return insertBundle(run, run.contentFile("Orvane.bundle"), error);
}

bool insertLogger(Run& run, ErrorText* error) {
  const std::string framework = run.contentFile("WEXSDK/OrvaneLogger.framework");
  return checkOrvaneLoggerDylib(joinPath(framework, "OrvaneLogger"), error) &&
         makeFrameworksFolder(run, error) &&
         copyOrvaneLoggerFramework(run.log(), framework,
                                   joinPath(run.appPath, "Frameworks/OrvaneLogger.framework"),
                                   error);
}

bool embedManagementFiles(Run& run, ErrorText* error) {
  if (run.request.appMode == "5") return true;
  run.progressor.SetProgress("Copying resource files...");
  const std::string source = run.contentFile("Orvane.bundle");
  const std::string target = joinPath(run.appPath, "OrvaneDylib.bundle");
  systemLog("Orvane Bundle: Copying " + source);
  return copyOrvaneBundle(run.log(), source, target, error) && makeFrameworksFolder(run, error) &&
         copyNib(run, target, error) && insertLogger(run, error);
}

bool warnOfOldHost(Run& run, ErrorText* /*error*/) {
  if (verifyIfOSVerisonIsMavericksandAbove()) return true;
  run.log().logWarning(
      "WARNING: OS version is below 10.9 so arm64 extraction will not work. If wrapping a binary "
      "with arm64 that needs to be extracted, you need to update to 10.9 or above and get the "
      "command line tools");
  return true;
}

bool announceRebuild(Run& run, ErrorText* /*error*/) {
  run.progressor.SetProgress("Rebuilding app...");
  return true;
}

bool rebuildExecutable(Run& run, ErrorText* error) {
  return MachORebuild(run, run.appPath, ExecutableKind::kApplication, error);
}

bool checkLoadOrder(Run& run, ErrorText* error) {
  ErrorText reason;
  if (machOCheckDylibLoadOrder(run, run.appPath, LibraryKind::kFull, &reason)) return true;
  run.log().logError(reason.text());
  return fail(error, reason.text());
}

bool placeProfile(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Copying resource files...");
  return replaceProvisioningProfileAtDir(run, run.appPath, error);
}

}  // namespace tovrek::converter
