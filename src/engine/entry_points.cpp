#include "engine/entry_points.h"

#include <fmt/format.h>

#include <exception>
#include <string_view>
#include <vector>

#include "engine/MachOChecker.h"
#include "engine/MachORebuildLib.h"
#include "engine/file_check.h"
#include "engine/lipo_runner.h"
#include "host/EditedFile.h"
#include "host/MappedFile.h"
#include "host/files.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

using Errors = MachORebuildErrors;
using macho::ByteView;

void requireMapped(Mapped mapped) {
  switch (mapped) {
    case Mapped::kDone:
      return;
    case Mapped::kOpenFailed:
      throw Errors::kOpen;
    case Mapped::kStatFailed:
      throw Errors::kStat;
    case Mapped::kMapFailed:
      throw Errors::kMap;
  }
}

MappedFile imageFile(const std::string& path) {
  MappedFile file;
  requireMapped(file.map(path));
  if (file.bytes().empty()) throw Errors::kMap;
  return file;
}

bool report(std::string_view what, Errors failure, int32_t* errorCode) {
  const auto code = static_cast<int32_t>(failure);
  printError(fmt::format("{} {}\n", what, code));
  if (errorCode != nullptr) *errorCode = code;
  return false;
}

// What the operation ended with; null after a success.
template <class Operation>
std::exception_ptr failureOf(Operation&& operation) {
  try {
    operation();
  } catch (...) {
    return std::current_exception();
  }
  return nullptr;
}

std::string describe(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (Errors code) {
    return fmt::format("code {}", static_cast<int32_t>(code));
  } catch (const std::exception& words) {
    return words.what();
  }
}

std::vector<std::string> sliceFiles(const std::string& path, const ArchPresence& present) {
  std::vector<std::string> files;
  for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
    if (present[i]) files.push_back(sliceFileName(path, kDeviceArchs[i]));
  }
  return files;
}

void checkInsertion(const std::string& slice, int binaryType, bool libraryType) {
  const MappedFile file = imageFile(slice);
  const ByteView image{file.bytes()};
  const bool known = macho::tryArchitectures([&]<class Arch>() {
    if (!macho::MachOChecker<Arch>::validFile(image)) return false;
    macho::MachOChecker<Arch>::doCheckInsertion(image, slice, false, libraryType, binaryType);
    return true;
  });
  if (!known) throw Errors::kUnknownArchitecture;
}

// One slice without room refuses the whole file, of which nothing is changed then.
void requireRoomInAll(const std::vector<std::string>& slices, int binaryType, bool libraryType) {
  const std::exception_ptr failure = failureOf([&] {
    for (const std::string& slice : slices) checkInsertion(slice, binaryType, libraryType);
  });
  if (!failure) return;
  for (const std::string& slice : slices) removeItem(slice);
  std::rethrow_exception(failure);
}

}  // namespace

void addDylib(int binaryType, const std::string& path, bool libraryType, Settings settings) {
  EditedFile file;
  requireMapped(file.open(path));
  const bool known = macho::tryArchitectures([&]<class Arch>() {
    if (!macho::MachOChecker<Arch>::validFile(macho::EditableByteView(file.bytes()))) return false;
    macho::MachOChecker<Arch>::doAddDylib(file, path, false, libraryType, binaryType,
                                          settings.strictHeaderRoom);
    return true;
  });
  if (!known) throw Errors::kUnknownArchitecture;
}

void check(const std::string& path, bool sdkOrder, bool libraryType, macho::AcceptanceRules rules) {
  const MappedFile mapping = imageFile(path);
  macho::checkFile(ByteView{mapping.bytes()}, path, sdkOrder, libraryType, rules);
}

void checkBySettings(const std::string& path, bool sdkOrder, bool libraryType, Settings settings) {
  const MappedFile mapping = imageFile(path);
  const auto failureBy = [&](const macho::AcceptanceRules& rules) {
    return failureOf(
        [&] { macho::checkFile(ByteView{mapping.bytes()}, path, sdkOrder, libraryType, rules); });
  };
  // What the built-in rules accept needs no setting.
  const std::exception_ptr builtIn = failureBy({});
  if (!builtIn) return;
  const std::exception_ptr modern = failureBy(macho::kModernRules);
  if (!modern) {
    MachORebuildLib_Log("modernImages {} {}, which the built-in rules refuse: {}",
                        settings.modernImages ? "accepts" : "would accept", path,
                        describe(builtIn));
  }
  const std::exception_ptr& failure = settings.modernImages ? modern : builtIn;
  if (failure) std::rethrow_exception(failure);
}

bool addOrvaneDylib(int binaryType, bool libraryType, const std::string& path, int32_t* errorCode,
                    Settings settings) {
  try {
    // What split and join answer is not asked for: a missing slice fails to open, and a missing
    // or stale executable fails the check.
    ArchPresence present{};
    ExtractArchsFromFatBinary(path, IsFatBinary(path), &present);
    const std::vector<std::string> slices = sliceFiles(path, present);
    if (settings.strictHeaderRoom) requireRoomInAll(slices, binaryType, libraryType);
    for (const std::string& slice : slices) addDylib(binaryType, slice, libraryType, settings);
    CreateFatBinaryFromArchs(path, present);
  } catch (Errors failure) {
    return report(
        fmt::format("addOrvaneDylib: add binaryType {} dylib failed: {}", binaryType, path),
        failure, errorCode);
  }
  try {
    checkBySettings(path, false, libraryType, settings);
  } catch (Errors failure) {
    return report(fmt::format("addOrvaneDylib: check dylib failed: {}", path), failure, errorCode);
  }
  return true;
}

bool checkOrderDynamicLibrariesInSDKImage(bool libraryType, const std::string& path,
                                          int32_t* errorCode, Settings settings) {
  try {
    checkBySettings(path, true, libraryType, settings);
  } catch (Errors failure) {
    return report(fmt::format("checkOrderDynamicLibrariesInSDKImage: check dylib failed: {}", path),
                  failure, errorCode);
  }
  return true;
}

}  // namespace tovrek
