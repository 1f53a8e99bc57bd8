// The conversion pipeline's only door to the Mach-O engine.
#pragma once

#include <cstdint>
#include <string>

#include "engine/MachORebuildLib.h"
#include "host/ErrorText.h"
#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek {

// Each operation runs one rebuild or one check; the result is the engine's. A failure puts its
// message into `error`, a success clears the slot. Nothing is thrown.
class MachORebuilder {
 public:
  // By default the built-in rules judge the executables.
  explicit MachORebuilder(Settings settings = {}) : settings_(settings) {}

  // Makes the engine log where `logger` logs, then works on the executable at `path`.
  // `binaryType` 1 (app extension) or 2 (application) inserts the libraries' load commands,
  // 0 only checks the load order of an SDK-built executable, anything else does nothing and is
  // false with no message. `libraryType` accepts references to Intune's framework.
  bool initWithBinaryType(int binaryType, bool libraryType, const std::string& path,
                          WrapperLogger& logger, ErrorText* error);
  // The check of the load order.
  bool initForLibraryType(bool libraryType, const std::string& path, WrapperLogger& logger,
                          ErrorText* error);

 private:
  const Settings settings_;
  MachORebuildLib engine_;
};

}  // namespace tovrek
