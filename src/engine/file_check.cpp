#include "engine/file_check.h"

#include <fmt/format.h>

#include <exception>

#include "engine/MachOChecker.h"
#include "engine/architectures.h"
#include "engine/engine_log.h"
#include "engine/failure_of.h"
#include "engine/open_mapping.h"
#include "macho/FatTable.h"

namespace tovrek {
namespace {

using Errors = MachORebuildErrors;

std::string describe(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (Errors code) {
    return fmt::format("code {}", static_cast<int32_t>(code));
  } catch (const std::exception& words) {
    return words.what();
  }
}

}  // namespace

namespace macho {
namespace {

void checkFat(ByteView file, const FatTable& table, const CheckOptions& options,
              const WrapperLogger& logger) {
  // Slices that overlap could make the work grow with the square of the file.
  uint64_t unseen = file.size();
  for (uint32_t i = 0; i < table.count(); ++i) {
    const auto slice = table.entry(i);
    if (!slice) throw Errors::kSliceMismatch;
    const bool fits = slice->size <= unseen;
    const ByteView image = fits ? file.sub(slice->offset, slice->size) : ByteView();
    if (fits) unseen -= slice->size;
    const bool known = visitArchOf(
        slice->cputype, [&]<class Arch>() { MachOChecker<Arch>::doCheck(image, options, logger); });
    // An unknown architecture ends the walk, so slices behind it are not looked at.
    if (!known) return;
  }
}

}  // namespace

void checkFile(ByteView file, const CheckOptions& options, const WrapperLogger& logger) {
  const auto table = FatTable::find(file);
  if (table && !table->isWide()) return checkFat(file, *table, options, logger);
  visitArchOf(file, [&]<class Arch>() { MachOChecker<Arch>::doCheck(file, options, logger); });
}

}  // namespace macho

void check(const std::string& path, const macho::CheckOptions& options,
           const WrapperLogger& logger) {
  const MappedFile mapping = openForReading(path);
  macho::checkFile(macho::ByteView{mapping.bytes()}, options, logger);
}

void checkBySettings(const std::string& path, bool sdkOrder, bool libraryType, Settings settings,
                     const WrapperLogger& logger) {
  const MappedFile mapping = openForReading(path);
  const auto failureBy = [&](const macho::AcceptanceRules& rules) {
    return failureOf([&] {
      macho::checkFile(macho::ByteView{mapping.bytes()}, {sdkOrder, libraryType, rules}, logger);
    });
  };
  // What the built-in rules accept needs no setting.
  const std::exception_ptr builtIn = failureBy({});
  if (!builtIn) return;
  if (!settings.modernImages && !settings.namesModernImages) std::rethrow_exception(builtIn);
  const std::exception_ptr modern = failureBy(macho::kModernRules);
  if (!modern) {
    MachORebuildLib_Log(logger, "modernImages {} {}, which the built-in rules refuse: {}",
                        settings.modernImages ? "accepts" : "would accept", path,
                        describe(builtIn));
  }
  const std::exception_ptr& failure = settings.modernImages ? modern : builtIn;
  if (failure) std::rethrow_exception(failure);
}

}  // namespace tovrek
