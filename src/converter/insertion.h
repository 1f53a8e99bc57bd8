// What goes into an app: management files, the profile, and load commands of its executables.
#pragma once

#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// What an executable is to the engine, by its numbers. Another one stands for the check of the load
// order alone, which has an operation of its own.
enum class ExecutableKind { kAppExtension = 1, kApplication = 2 };

bool copyOrvaneBundle(const WrapperLogger& log, const std::string& from, const std::string& to,
                      ErrorText* error);
bool copyOrvaneLoggerFramework(const WrapperLogger& log, const std::string& from,
                               const std::string& to, ErrorText* error);
bool createAppBundleFrameworksSubdirectory(const WrapperLogger& log, const std::string& path,
                                           ErrorText* error);
bool replaceProvisioningProfileAtDir(const Run& run, const std::string& appPath, ErrorText* error);
// Inserts our load commands into the executable of the bundle.
bool MachORebuild(const Run& run, const std::string& bundlePath, ExecutableKind kind,
                  ErrorText* error);
// Checks the order of the libraries that the executable loads.
bool machOCheckDylibLoadOrder(const Run& run, const std::string& bundlePath, LibraryKind library,
                              ErrorText* error);

}  // namespace tovrek::converter
