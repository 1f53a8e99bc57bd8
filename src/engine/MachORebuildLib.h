// The engine's operations and its process-wide logger, as the front uses them.
#pragma once

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek {

class Config {
 public:
  static std::string getVersion() { return "1.0"; }
};

// Class-level operations only. The levels and the file name are those of the logger.
class MachORebuildLib {
 public:
  static void setLogDisplayLevel(int64_t level) { logger().setLogDisplayLevel(level); }
  static void setLogFileWriteLevel(int64_t level) { logger().setLogFileWriteLevel(level); }
  static void setLogFilename(std::optional<std::string> name) {
    logger().setLogFilename(std::move(name));
  }
  static WrapperLogger& logger();
  static std::string getVersion() { return Config::getVersion(); }

  // Inserts the libraries' load commands into the executable at `path`. On a failure `errorCode`
  // gets one of MachORebuildErrors; failures in the engine's own words are thrown.
  static bool insertBinaryType(int binaryType, bool libraryType, const std::string& path,
                               int32_t* errorCode, Settings settings = {});
  // Checks the order of the libraries that an SDK-built executable loads.
  static bool checkOrderSDKLibraryType(bool libraryType, const std::string& path,
                                       int32_t* errorCode, Settings settings = {});
  // Replaces the process-wide logger by a new one that writes no file.
  static void load();
};

// Every trace line of the engine goes through here; lines are cut at 4095 bytes.
template <class... Args>
void MachORebuildLib_Log(fmt::format_string<Args...> format, Args&&... args) {
  std::array<char, 4095> buffer;
  const auto written =
      fmt::format_to_n(buffer.data(), buffer.size(), format, std::forward<Args>(args)...);
  MachORebuildLib::logger().logBasic(
      std::string_view(buffer.data(), std::min(written.size, buffer.size())));
}

}  // namespace tovrek
