#include "macho/entry_points.h"

#include <fmt/format.h>

#include <string_view>

#include "log/SystemLog.h"
#include "macho/FatFile.h"
#include "macho/MachOChecker.h"
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

// False for a cputype that is none of the six.
bool checkSlice(const macho::FatSlice& slice, ByteView image, const std::string& path,
                bool sdkOrder, bool libraryType, const macho::AcceptanceRules& rules) {
  return macho::tryArchitectures([&]<class Arch>() {
    if (slice.cputype != Arch::kCpuType) return false;
    macho::MachOChecker<Arch>::doCheck(image, path, sdkOrder, libraryType, rules);
    return true;
  });
}

void checkFat(ByteView file, const std::string& path, bool sdkOrder, bool libraryType,
              const macho::AcceptanceRules& rules) {
  // Slices that overlap could make the work grow with the square of the file.
  uint64_t unseen = file.size();
  const uint32_t count = macho::fatEntryCount(file);
  for (uint32_t i = 0; i < count; ++i) {
    macho::FatSlice slice;
    if (!macho::readFatEntry(file, i, &slice)) throw Errors::kSliceMismatch;
    const bool fits = slice.size <= unseen;
    const ByteView image = fits ? file.sub(slice.offset, slice.size) : ByteView();
    if (fits) unseen -= slice.size;
    // An unknown architecture ends the walk, so slices behind it are not looked at.
    if (!checkSlice(slice, image, path, sdkOrder, libraryType, rules)) return;
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
  const ByteView file{mapping.bytes()};
  if (macho::hasFatMagic(file)) return checkFat(file, path, sdkOrder, libraryType, rules);
  const bool known = macho::tryArchitectures([&]<class Arch>() {
    if (!macho::MachOChecker<Arch>::validFile(file)) return false;
    macho::MachOChecker<Arch>::doCheck(file, path, sdkOrder, libraryType, rules);
    return true;
  });
  if (!known) throw Errors::kUnknownArchitecture;
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
