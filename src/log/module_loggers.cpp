#include "log/module_loggers.h"

namespace tovrek {

WrapperLogger& Global_Commandline_Logger() {
  static WrapperLogger logger("CommandLine", std::nullopt);
  return logger;
}

WrapperLogger& Global_TKLib_Logger() {
  static WrapperLogger logger("ToolkitLib", std::nullopt);
  return logger;
}

WrapperLogger& Global_ManifestLib_logger() {
  static WrapperLogger logger("ManifestLib", std::nullopt);
  return logger;
}

}  // namespace tovrek
