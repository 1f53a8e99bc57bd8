// The engine's operations and its logger, as the front uses them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek {

class Config {
 public:
  static std::string getVersion() { return "1.0"; }
};

// The levels and the file name are those of its logger, which starts without a file.
class MachORebuildLib {
 public:
  void setLogDisplayLevel(int64_t level) { logger_.setLogDisplayLevel(level); }
  void setLogFileWriteLevel(int64_t level) { logger_.setLogFileWriteLevel(level); }
  void setLogFilename(std::optional<std::string> name) { logger_.setLogFilename(std::move(name)); }
  const WrapperLogger& logger() const { return logger_; }
  static std::string getVersion() { return Config::getVersion(); }

  // Inserts the libraries' load commands into the executable at `path`. A numeric failure is
  // printed, stored in `errorCode` as one of MachORebuildErrors and false; failures in the
  // engine's own words are thrown. `said` gets what went wrong before with splitting or joining.
  bool insertBinaryType(int binaryType, bool libraryType, const std::string& path,
                        int32_t* errorCode, Settings settings = {},
                        std::string* said = nullptr) const;
  // Checks the order of the libraries that an SDK-built executable loads.
  bool checkOrderSDKLibraryType(bool libraryType, const std::string& path, int32_t* errorCode,
                                Settings settings = {}) const;
  // Replaces the logger by a new one.
  void load() { *this = MachORebuildLib(); }

 private:
  WrapperLogger logger_{"MachORebuildLib", std::nullopt};
};

}  // namespace tovrek
