#include "engine/entry_points.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>
#include <vector>

#include "engine/failure_of.h"
#include "engine/file_check.h"
#include "engine/file_insertion.h"
#include "engine/lipo_runner.h"
#include "host/files.h"

namespace tovrek {
namespace {

using Errors = MachORebuildErrors;

EngineFailure failed(std::string_view what, Errors code, const ErrorText& lipo = {}) {
  return {code, fmt::format("{} {}\n", what, static_cast<int32_t>(code)), lipo.text()};
}

std::vector<std::string> sliceFiles(const std::string& path, const ArchPresence& present) {
  std::vector<std::string> files;
  for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
    if (present[i]) files.push_back(sliceFileName(path, kDeviceArchs[i]));
  }
  return files;
}

// One slice without room refuses the whole file, of which nothing is changed then.
void requireRoomInAll(const std::vector<std::string>& slices, int binaryType, bool libraryType,
                      const WrapperLogger& logger) {
  const std::exception_ptr failure = failureOf([&] {
    for (const std::string& slice : slices) checkInsertion(binaryType, slice, libraryType, logger);
  });
  if (!failure) return;
  for (const std::string& slice : slices) removeItem(slice);
  std::rethrow_exception(failure);
}

}  // namespace

std::optional<EngineFailure> addOrvaneDylib(int binaryType, bool libraryType,
                                            const std::string& path, Settings settings,
                                            const WrapperLogger& logger) {
  ErrorText lipo;
  try {
    // What split and join answer is not asked for, as long as lipo answers at all: a missing slice
    // fails to open, and a missing or stale executable fails the check.
    ArchPresence present{};
    ExtractArchsFromFatBinary(path, IsFatBinary(path), &present, logger, &lipo);
    const std::vector<std::string> slices = sliceFiles(path, present);
    if (settings.strictHeaderRoom) requireRoomInAll(slices, binaryType, libraryType, logger);
    for (const std::string& slice : slices) {
      addDylib(binaryType, slice, libraryType, settings, logger);
    }
    CreateFatBinaryFromArchs(path, present, logger, &lipo);
  } catch (Errors code) {
    return failed(
        fmt::format("addOrvaneDylib: add binaryType {} dylib failed: {}", binaryType, path), code,
        lipo);
  }
  try {
    checkBySettings(path, false, libraryType, settings, logger);
  } catch (Errors code) {
    return failed(fmt::format("addOrvaneDylib: check dylib failed: {}", path), code, lipo);
  }
  return std::nullopt;
}

std::optional<EngineFailure> checkOrderDynamicLibrariesInSDKImage(bool libraryType,
                                                                  const std::string& path,
                                                                  Settings settings,
                                                                  const WrapperLogger& logger) {
  try {
    checkBySettings(path, true, libraryType, settings, logger);
  } catch (Errors code) {
    return failed(fmt::format("checkOrderDynamicLibrariesInSDKImage: check dylib failed: {}", path),
                  code);
  }
  return std::nullopt;
}

}  // namespace tovrek
