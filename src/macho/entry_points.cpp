#include "macho/entry_points.h"

#include <fmt/format.h>

#include <string_view>

#include "log/SystemLog.h"
#include "macho/MachOChecker.h"
#include "macho/file_check.h"
#include "macho/lipo_runner.h"

namespace tovrek {
namespace {

using Errors = MachORebuildErrors;
using macho::ByteView;

void openMapping(FileMapping& file, const std::string& path, FileMapping::Mode mode) {
  switch (file.open(path, mode)) {
    case FileMapping::Opened::kDone:
      return;
    case FileMapping::Opened::kOpenFailed:
      throw Errors::kOpen;
    case FileMapping::Opened::kStatFailed:
      throw Errors::kStat;
    case FileMapping::Opened::kMapFailed:
      throw Errors::kMap;
  }
}

bool report(std::string_view what, Errors failure, int32_t* errorCode) {
  const auto code = static_cast<int32_t>(failure);
  printError(fmt::format("{} {}\n", what, code));
  if (errorCode != nullptr) *errorCode = code;
  return false;
}

}  // namespace

void addDylib(int binaryType, const std::string& path, bool libraryType) {
  FileMapping file;
  openMapping(file, path, FileMapping::Mode::kEdit);
  const bool known = macho::tryArchitectures([&]<class Arch>() {
    if (!macho::MachOChecker<Arch>::validFile(macho::EditableByteView(file.bytes()))) return false;
    macho::MachOChecker<Arch>::doAddDylib(file, path, false, libraryType, binaryType);
    return true;
  });
  if (!known) throw Errors::kUnknownArchitecture;
}

void check(const std::string& path, bool sdkOrder, bool libraryType, macho::AcceptanceRules rules) {
  FileMapping mapping;
  openMapping(mapping, path, FileMapping::Mode::kRead);
  macho::checkFile(ByteView{mapping.bytes()}, path, sdkOrder, libraryType, rules);
}

bool addOrvaneDylib(int binaryType, bool libraryType, const std::string& path, int32_t* errorCode,
                    macho::AcceptanceRules rules) {
  try {
    // What split and join answer is not asked for: a missing slice fails to open, and a missing
    // or stale executable fails the check.
    ArchPresence present{};
    ExtractArchsFromFatBinary(path, IsFatBinary(path), &present);
    for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
      if (present[i]) addDylib(binaryType, sliceFileName(path, kDeviceArchs[i]), libraryType);
    }
    CreateFatBinaryFromArchs(path, present);
  } catch (Errors failure) {
    return report(
        fmt::format("addOrvaneDylib: add binaryType {} dylib failed: {}", binaryType, path),
        failure, errorCode);
  }
  try {
    check(path, false, libraryType, rules);
  } catch (Errors failure) {
    return report(fmt::format("addOrvaneDylib: check dylib failed: {}", path), failure, errorCode);
  }
  return true;
}

bool checkOrderDynamicLibrariesInSDKImage(bool libraryType, const std::string& path,
                                          int32_t* errorCode, macho::AcceptanceRules rules) {
  try {
    check(path, true, libraryType, rules);
  } catch (Errors failure) {
    return report(fmt::format("checkOrderDynamicLibrariesInSDKImage: check dylib failed: {}", path),
                  failure, errorCode);
  }
  return true;
}

}  // namespace tovrek
