#include "engine/MachORebuilder.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>

#include "engine/MachORebuildErrors.h"
#include "engine/binary_type.h"
#include "engine/engine_text.h"

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
  std::string said;
  try {
    if (binaryType == kAppExtension || binaryType == kApplication) {
      done = engine_.insertBinaryType(binaryType, libraryType, path, &code, settings_, &said);
    } else if (binaryType == kOrderCheckOnly) {
      done = engine_.checkOrderSDKLibraryType(libraryType, path, &code, settings_);
    }
  } catch (const macho::EngineText& failure) {
    // The engine's own words have no number, nor has a lack of memory.
    return fail(error, failure.what(), failure.said());
  } catch (const std::exception& failure) {
    return fail(error, failure.what());
  }
  if (code != 0) {
    fail(error, textFor(code), said);
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
