// What all stages of one run share, made once by the program and handed down. Nothing of it is
// process-wide, so two runs in one process do not see each other.
#pragma once

#include "context/PellRequest.h"
#include "icons/IconConverter.h"
#include "log/module_loggers.h"
#include "settings/Settings.h"

namespace tovrek {

struct RunContext {
  ModuleLoggers loggers;
  PellRequest keychain;  // which keychain signing and certificate questions name
  Settings settings;     // as read at the start of the program
  IconConverter icons;
  bool showsProgress = false;  // of long stages, on the terminal
};

}  // namespace tovrek
