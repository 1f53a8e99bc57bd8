// What is copied into an app, and the rewriting of its executables.
#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "engine/MachORebuilder.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/AppBundle.h"

namespace tovrek {

using namespace converter;

bool AppConverter::copyOrvaneBundle(const std::string& from, const std::string& to,
                                    ErrorText* error) {
  if (itemExistsNoFollow(to)) {
    logger().logWarning(
        fmt::format("Orvane Bundle already exists in the app at {}. The app has been previously "
                    "processed by Orvane. Simply replacing it...",
                    to));
  }
  if (!replaceByCopy(from, to, error)) return false;
  logger().logBasic(fmt::format("Log: Successfully copied OrvaneDyLib from {} to : {}", from, to));
  return true;
}

bool AppConverter::copyOrvaneLoggerFramework(const std::string& from, const std::string& to,
                                             ErrorText* error) {
  if (itemExistsNoFollow(to)) {
    logger().logWarning(fmt::format(
        "Orvane Logger Framework already exists in the app at {}. Simply replacing it...", to));
  }
  if (!replaceByCopy(from, to, error)) return false;
  logger().logBasic(fmt::format("Log: Successfully copied OrvaneLogger from {} to : {}", from, to));
  return true;
}

bool AppConverter::createAppBundleFrameworksSubdirectory(const std::string& path,
                                                         ErrorText* error) {
  ErrorText reason;
  if (!createDirectories(path, &reason)) {
    return fail(error,
                fmt::format("Failed to create application bundle Frameworks subdirectory. Error:{}",
                            reason.text()));
  }
  logger().logBasic("Log: Successfully created application bundle Frameworks subdirectory");
  return true;
}

bool AppConverter::replaceProvisioningProfileAtDir(const std::string& appPath, ErrorText* error) {
  const std::string source = converterParam_.provisionProfile.value_or("");
  const std::string destination = joinPath(appPath, "embedded.mobileprovision");
  systemLog(fmt::format("unzip location {}; destination {}; source {}.", appPath, destination,
                        shown(converterParam_.provisionProfile)));
  if (!fileExists(source)) {
    return fail(error, fmt::format("A required file at this location does not exist: {}", source));
  }
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

}  // namespace

bool AppConverter::MachORebuild(const std::string& bundlePath, int binaryType, int libraryType,
                                ErrorText* error) {
  MachORebuilder rebuilder(settings_);
  ErrorText reason;
  const bool succeeded = rebuilder.initWithBinaryType(binaryType, libraryType != 0,
                                                      executableOf(bundlePath), logger(), &reason);
  return keepingWarnings(succeeded, reason, error);
}

bool AppConverter::machOCheckDylibLoadOrder(const std::string& bundlePath, int libraryType,
                                            ErrorText* error) {
  MachORebuilder rebuilder(settings_);
  ErrorText reason;
  const bool succeeded =
      rebuilder.initForLibraryType(libraryType != 0, executableOf(bundlePath), logger(), &reason);
  return keepingWarnings(succeeded, reason, error);
}

std::string AppConverter::escapeExecutableString(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '"' || c == '$' || c == '`' || c == '\'') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace tovrek
