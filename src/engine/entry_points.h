// The engine's operations over an app's executable.
#pragma once

#include <optional>
#include <string>

#include "engine/MachORebuildErrors.h"
#include "engine/binary_type.h"
#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek {

// A numeric failure, the line that tells standard error of it, and what went wrong before with
// splitting or joining.
struct EngineFailure {
  MachORebuildErrors code;
  std::string line;
  std::string said{};
};

// Inserts the wrapper library's and the logger's load commands into the armv7, armv7s and arm64
// slices of the executable at `path`, drops all other slices, and validates the result. The file
// comes back universal even when it was thin. Numeric failures are the result; failures in words
// (macho::EngineText) are thrown on. Nothing is rolled back after a failure, but with
// strictHeaderRoom nothing is changed before all slices were found to have the room.
std::optional<EngineFailure> addOrvaneDylib(int binaryType, bool libraryType,
                                            const std::string& path, Settings settings,
                                            const WrapperLogger& logger);

// Validates, and checks the order of the libraries that an SDK-built executable loads. Failures
// are told as by addOrvaneDylib.
std::optional<EngineFailure> checkOrderDynamicLibrariesInSDKImage(bool libraryType,
                                                                  const std::string& path,
                                                                  Settings settings,
                                                                  const WrapperLogger& logger);

}  // namespace tovrek
