#include "engine/open_mapping.h"

#include "engine/MachORebuildErrors.h"

namespace tovrek {
namespace {

void requireMapped(Mapped mapped) {
  switch (mapped) {
    case Mapped::kDone:
      return;
    case Mapped::kOpenFailed:
      throw MachORebuildErrors::kOpen;
    case Mapped::kStatFailed:
      throw MachORebuildErrors::kStat;
    case Mapped::kMapFailed:
      throw MachORebuildErrors::kMap;
  }
}

}  // namespace

MappedFile openForReading(const std::string& path) {
  MappedFile file;
  requireMapped(file.map(path));
  if (file.bytes().empty()) throw MachORebuildErrors::kMap;
  return file;
}

void openForEditing(EditedFile& file, const std::string& path) {
  requireMapped(file.open(path));
}

}  // namespace tovrek
