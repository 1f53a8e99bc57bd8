// Validation of whole files, thin or universal.
//
// Failures are thrown: MachORebuildErrors, or macho::EngineText. Traces go to the logger.
#pragma once

#include <string>

#include "engine/CheckOptions.h"
#include "log/WrapperLogger.h"
#include "macho/ByteView.h"
#include "settings/Settings.h"

namespace tovrek {
namespace macho {

// Validates a thin image, or the slices of a universal file up to the first of an unknown
// architecture.
void checkFile(ByteView file, const CheckOptions& options, const WrapperLogger& logger);

}  // namespace macho

// The same for the file at `path`.
void check(const std::string& path, const macho::CheckOptions& options,
           const WrapperLogger& logger);
// The same by the rules that the settings choose. The log names the setting when it changes the
// outcome, or would.
void checkBySettings(const std::string& path, bool sdkOrder, bool libraryType, Settings settings,
                     const WrapperLogger& logger);

}  // namespace tovrek
