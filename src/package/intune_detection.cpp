#include "package/intune_detection.h"

#include <fmt/format.h>

#include "host/files.h"
#include "host/paths.h"
#include "host/utf8.h"
#include "package/AppBundle.h"
#include "package/binary_symbols.h"
#include "package/keychain_groups.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

constexpr const char* kAccessGroup = "com.microsoft.intune.mam";
constexpr const char* kFramework = "Frameworks/IntuneMAM.framework";
constexpr const char* kResources = "IntuneMAMResources.bundle";
constexpr const char* kSymbol = "_OBJC_CLASS_$_IntuneMAMEnrollmentManager";

void note(const WrapperLogger& logger, const std::string& text) {
  logger.logBasic("DetectIntune: " + text);
}

bool hasFramework(const std::string& app, const WrapperLogger& logger) {
  const bool found = isDirectory(joinPath(app, kFramework));
  note(logger, found ? "IntuneFrameworkBundle found" : "Dynamic IntuneFramework does not exist.");
  return found;
}

bool hasResources(const std::string& app, const WrapperLogger& logger) {
  const std::string path = joinPath(app, kResources);
  const bool found = fileExists(path);
  note(logger, found ? fmt::format("IntuneMAMResources exists at {}", path)
                     : "IntuneMAMResources does not exist.");
  return found;
}

bool fileListsAccessGroup(const std::optional<std::string>& entitlementsFile,
                          const WrapperLogger& logger) {
  if (!entitlementsFile || entitlementsFile->empty()) {
    note(logger, "No entitlements file.");
    return false;
  }
  ErrorText error;
  const bool found = checkKeychainAccessGroup(kAccessGroup, *entitlementsFile, &error, logger);
  note(logger,
       found ? "Intune access group exists in the entitlement file."
             : fmt::format("Entitlements doesn't have Intune access group. {}", error.text()));
  return found;
}

bool signatureListsAccessGroup(const std::string& app, const WrapperLogger& logger) {
  const bool found = checkKeychainAccessGroupInAppBundlePath(kAccessGroup, app, logger);
  note(logger, found ? "Intune access group exists in the signed app."
                     : "Entitlements doesn't have Intune access group in the signed app.");
  return found;
}

bool executableHasSymbol(const std::string& app, const WrapperLogger& logger, ErrorText* error) {
  const std::optional<AppBundle> bundle = AppBundle::open(app);
  const std::optional<std::string> executable = bundle ? bundle->executablePath() : std::nullopt;
  int status = 0;
  bool answered = true;
  const std::string symbols =
      executable ? getSymbolsFromBinaryPath(*executable, &status, &answered, error) : "";
  if (!answered) return false;
  const bool found = symbols.find(kSymbol) != std::string::npos;
  note(logger, fmt::format("Symbols: L{}, terminatedStatus: {}", utf16Length(symbols), status));
  logger.logBasic(fmt::format("Intune Symbols found: {}", found ? 1 : 0));
  return found;
}

}  // namespace

bool detectIntuneInAppBundle(const std::string& appBundlePath,
                             const std::optional<std::string>& entitlementsFile,
                             const WrapperLogger& logger, ErrorText* error) {
  if (appBundlePath.empty()) {
    note(logger, "ERROR: Empty app bundle passed.");
    return false;
  }
  return hasFramework(appBundlePath, logger) || hasResources(appBundlePath, logger) ||
         fileListsAccessGroup(entitlementsFile, logger) ||
         signatureListsAccessGroup(appBundlePath, logger) ||
         executableHasSymbol(appBundlePath, logger, error);
}

}  // namespace tovrek
