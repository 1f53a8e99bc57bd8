// The engine's operations over whole files.
#pragma once

#include <cstdint>
#include <string>

#include "engine/AcceptanceRules.h"
#include "settings/Settings.h"

namespace tovrek {

// What kind of executable is worked on; other values insert nothing.
enum ORVApp_BinaryType : int { kOrderCheckOnly = 0, kAppExtension = 1, kApplication = 2 };

// Inserts the wrapper library's and the logger's load commands into the armv7, armv7s and arm64
// slices of the executable at `path`, drops all other slices, and validates the result. The file
// comes back universal even when it was thin. A numeric failure is printed, stored in
// `errorCode` and false; failures in words (macho::EngineText) are thrown on. Nothing is rolled
// back after a failure, but with strictHeaderRoom nothing is changed before all slices were found
// to have the room.
bool addOrvaneDylib(int binaryType, bool libraryType, const std::string& path, int32_t* errorCode,
                    Settings settings = {});

// Inserts into one thin file in place. Throws MachORebuildErrors.
void addDylib(int binaryType, const std::string& path, bool libraryType, Settings settings = {});

// Validates a thin or universal file. Throws MachORebuildErrors or macho::EngineText.
void check(const std::string& path, bool sdkOrder, bool libraryType,
           macho::AcceptanceRules rules = {});
// The same by the rules that the settings choose. The log names the setting when it changes the
// outcome, or would.
void checkBySettings(const std::string& path, bool sdkOrder, bool libraryType, Settings settings);

// Validates, and checks the order of the libraries that an SDK-built executable loads. Failures
// are reported as by addOrvaneDylib.
bool checkOrderDynamicLibrariesInSDKImage(bool libraryType, const std::string& path,
                                          int32_t* errorCode, Settings settings = {});

}  // namespace tovrek
