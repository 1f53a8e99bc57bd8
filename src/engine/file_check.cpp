#include "engine/file_check.h"

#include "engine/MachOChecker.h"
#include "macho/FatTable.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

// False for a cputype that is none of the six.
bool checkSlice(const FatSlice& slice, ByteView image, const std::string& path, bool sdkOrder,
                bool libraryType, const AcceptanceRules& rules) {
  return tryArchitectures([&]<class Arch>() {
    if (slice.cputype != Arch::kCpuType) return false;
    MachOChecker<Arch>::doCheck(image, path, sdkOrder, libraryType, rules);
    return true;
  });
}

void checkFat(ByteView file, const FatTable& table, const std::string& path, bool sdkOrder,
              bool libraryType, const AcceptanceRules& rules) {
  // Slices that overlap could make the work grow with the square of the file.
  uint64_t unseen = file.size();
  for (uint32_t i = 0; i < table.count(); ++i) {
    const auto slice = table.entry(i);
    if (!slice) throw Errors::kSliceMismatch;
    const bool fits = slice->size <= unseen;
    const ByteView image = fits ? file.sub(slice->offset, slice->size) : ByteView();
    if (fits) unseen -= slice->size;
    // An unknown architecture ends the walk, so slices behind it are not looked at.
    if (!checkSlice(*slice, image, path, sdkOrder, libraryType, rules)) return;
  }
}

}  // namespace

void checkFile(ByteView file, const std::string& path, bool sdkOrder, bool libraryType,
               const AcceptanceRules& rules) {
  const auto table = FatTable::find(file);
  if (table && !table->isWide()) {
    return checkFat(file, *table, path, sdkOrder, libraryType, rules);
  }
  const bool known = tryArchitectures([&]<class Arch>() {
    if (!MachOChecker<Arch>::validFile(file)) return false;
    MachOChecker<Arch>::doCheck(file, path, sdkOrder, libraryType, rules);
    return true;
  });
  if (!known) throw Errors::kUnknownArchitecture;
}

}  // namespace tovrek::macho
