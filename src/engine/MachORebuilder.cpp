#include "engine/MachORebuilder.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>

#include "engine/MachORebuildErrors.h"
#include "engine/binary_type.h"

namespace tovrek {
namespace {

std::string textFor(int32_t code) {
  const std::string_view message = messageFor(code);
  if (message.empty()) return fmt::format("Failed to rebuild the app. Error:{}", code);
  return std::string(message);
}

}  // namespace

bool MachORebuilder::initWithBinaryType(int binaryType, bool libraryType, const std::string& path,
                                        WrapperLogger& logger, ErrorText* error) {
  engine_.load();
  engine_.setLogFilename(logger.getLogFilename());
  engine_.setLogFileWriteLevel(logger.getLogFileWriteLevel());
  engine_.setLogDisplayLevel(logger.getLogDisplayLevel());

  int32_t code = 0;
  bool done = false;
  try {
    if (binaryType == kAppExtension || binaryType == kApplication) {
      done = engine_.insertBinaryType(binaryType, libraryType, path, &code, settings_);
    } else if (binaryType == kOrderCheckOnly) {
      done = engine_.checkOrderSDKLibraryType(libraryType, path, &code, settings_);
    }
  } catch (const std::exception& failure) {
    // The engine's own words (and a lack of memory) have no number.
    return fail(error, failure.what());
  }
  if (code != 0) {
    fail(error, textFor(code));
  } else if (error != nullptr) {
    error->clear();
  }
  return done;
}

bool MachORebuilder::initForLibraryType(bool libraryType, const std::string& path,
                                        WrapperLogger& logger, ErrorText* error) {
  return initWithBinaryType(kOrderCheckOnly, libraryType, path, logger, error);
}

}  // namespace tovrek
