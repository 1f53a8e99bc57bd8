#include "engine/MachORebuildLib.h"

#include "engine/entry_points.h"

namespace tovrek {
namespace {

WrapperLogger newLogger() {
  return {"MachORebuildLib", std::nullopt};
}

}  // namespace

WrapperLogger& MachORebuildLib::logger() {
  static WrapperLogger instance = newLogger();
  return instance;
}

void MachORebuildLib::load() {
  logger() = newLogger();
}

bool MachORebuildLib::insertBinaryType(int binaryType, bool libraryType, const std::string& path,
                                       int32_t* errorCode, Settings settings) {
  return addOrvaneDylib(binaryType, libraryType, path, errorCode, settings);
}

bool MachORebuildLib::checkOrderSDKLibraryType(bool libraryType, const std::string& path,
                                               int32_t* errorCode, Settings settings) {
  return checkOrderDynamicLibrariesInSDKImage(libraryType, path, errorCode, settings);
}

}  // namespace tovrek
