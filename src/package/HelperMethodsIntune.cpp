// Whether an app has Microsoft Intune inside.
#include <fmt/format.h>

#include "host/files.h"
#include "host/paths.h"
#include "host/process.h"
#include "log/module_loggers.h"
#include "package/AppBundle.h"
#include "package/HelperMethods.h"

namespace tovrek {
namespace {

constexpr const char* kAccessGroup = "com.microsoft.intune.mam";
constexpr const char* kFramework = "Frameworks/IntuneMAM.framework";
constexpr const char* kResources = "IntuneMAMResources.bundle";
constexpr const char* kSymbol = "_OBJC_CLASS_$_IntuneMAMEnrollmentManager";

void note(const std::string& text) {
  Global_ManifestLib_logger().logBasic("DetectIntune: " + text);
}

bool hasFramework(const std::string& app) {
  const bool found = isDirectory(joinPath(app, kFramework));
  note(found ? "IntuneFrameworkBundle found" : "Dynamic IntuneFramework does not exist.");
  return found;
}

bool hasResources(const std::string& app) {
  const std::string path = joinPath(app, kResources);
  const bool found = fileExists(path);
  note(found ? fmt::format("IntuneMAMResources exists at {}", path)
             : "IntuneMAMResources does not exist.");
  return found;
}

bool fileListsAccessGroup(const std::optional<std::string>& entitlementsFile) {
  if (!entitlementsFile || entitlementsFile->empty()) {
    note("No entitlements file.");
    return false;
  }
  ErrorText error;
  const bool found =
      HelperMethods::checkKeychainAccessGroup(kAccessGroup, *entitlementsFile, &error);
  note(found ? "Intune access group exists in the entitlement file."
             : fmt::format("Entitlements doesn't have Intune access group. {}", error.text()));
  return found;
}

bool signatureListsAccessGroup(const std::string& app) {
  const bool found = HelperMethods::checkKeychainAccessGroupInAppBundlePath(kAccessGroup, app);
  note(found ? "Intune access group exists in the signed app."
             : "Entitlements doesn't have Intune access group in the signed app.");
  return found;
}

bool executableHasSymbol(const std::string& app) {
  const std::optional<AppBundle> bundle = AppBundle::open(app);
  const std::optional<std::string> executable = bundle ? bundle->executablePath() : std::nullopt;
  int status = 0;
  const std::string symbols =
      executable ? HelperMethods::getSymbolsFromBinaryPath(*executable, &status) : "";
  const bool found = symbols.find(kSymbol) != std::string::npos;
  note(fmt::format("Symbols: L{}, terminatedStatus: {}", symbols.size(), status));
  Global_ManifestLib_logger().logBasic(fmt::format("Intune Symbols found: {}", found ? 1 : 0));
  return found;
}

}  // namespace

bool HelperMethods::detectIntuneInAppBundle(const std::string& appBundlePath,
                                            const std::optional<std::string>& entitlementsFile) {
  if (appBundlePath.empty()) {
    note("ERROR: Empty app bundle passed.");
    return false;
  }
  return hasFramework(appBundlePath) || hasResources(appBundlePath) ||
         fileListsAccessGroup(entitlementsFile) || signatureListsAccessGroup(appBundlePath) ||
         executableHasSymbol(appBundlePath);
}

std::string HelperMethods::getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus) {
  Command command;
  command.argv = {"/usr/bin/nm", "-j", path};
  Outcome outcome = runQuietly(command);
  if (terminateStatus != nullptr) *terminateStatus = outcome.status;
  return std::move(outcome.output);
}

}  // namespace tovrek
