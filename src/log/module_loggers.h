// The loggers of a run, one per module. All write to one file with the same levels once the run is
// set up; until then they write no file. The Mach-O engine's logger is MachORebuildLib's own.
#pragma once

#include "log/WrapperLogger.h"

namespace tovrek {

struct ModuleLoggers {
  WrapperLogger commandLine{"CommandLine", std::nullopt};
  WrapperLogger toolkit{"ToolkitLib", std::nullopt};
  WrapperLogger manifest{"ManifestLib", std::nullopt};
};

}  // namespace tovrek
