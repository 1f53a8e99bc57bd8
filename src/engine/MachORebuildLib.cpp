#include "engine/MachORebuildLib.h"

#include "engine/entry_points.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

bool report(const std::optional<EngineFailure>& failure, int32_t* errorCode,
            std::string* said = nullptr) {
  if (!failure) return true;
  printError(failure->line);
  if (errorCode != nullptr) *errorCode = static_cast<int32_t>(failure->code);
  if (said != nullptr) *said = failure->said;
  return false;
}

}  // namespace

bool MachORebuildLib::insertBinaryType(int binaryType, bool libraryType, const std::string& path,
                                       int32_t* errorCode, Settings settings,
                                       std::string* said) const {
  return report(addOrvaneDylib(binaryType, libraryType, path, settings, logger_), errorCode, said);
}

bool MachORebuildLib::checkOrderSDKLibraryType(bool libraryType, const std::string& path,
                                               int32_t* errorCode, Settings settings) const {
  return report(checkOrderDynamicLibrariesInSDKImage(libraryType, path, settings, logger_),
                errorCode);
}

}  // namespace tovrek
