// The process-wide loggers, one per module. All write to one file with the same levels once
// AppConverter::initializeLogging has set them up; until then they write no file.
// The Mach-O engine's logger is MachORebuildLib's own.
#pragma once

#include "log/WrapperLogger.h"

namespace tovrek {

WrapperLogger& Global_Commandline_Logger();  // module "CommandLine"
WrapperLogger& Global_TKLib_Logger();        // module "ToolkitLib"
WrapperLogger& Global_ManifestLib_logger();  // module "ManifestLib"

}  // namespace tovrek
