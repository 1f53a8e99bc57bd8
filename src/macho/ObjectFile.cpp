#include "macho/ObjectFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "macho/ArchName.h"
#include "macho/layout.h"

namespace tovrek::macho {
namespace {

// Compiled Java classes share the magic number; what follows is their version, 45 or more.
constexpr uint32_t kMostEntries = 44;

std::string problemOf(const FatSlice& entry, uint32_t index, ByteView file) {
  if (!file.contains(entry.offset, entry.size)) {
    return fmt::format("offset plus size of slice {} extends past the end of the file", index);
  }
  const auto inside = readThin(file.sub(entry.offset, entry.size));
  if (inside && inside->slice.cputype != entry.cputype) {
    return fmt::format("cputype of slice {} does not match the image there", index);
  }
  return "";
}

}  // namespace

bool ObjectFile::open(const std::string& path, ErrorText* error) {
  path_ = path;
  if (!file_.open(path, error)) return false;
  table_ = FatTable::find(bytes());
  if (table_ && table_->count() <= kMostEntries) {
    kind_ = Kind::kUniversal;
    readTable();
  } else if (const auto thin = readThin(bytes())) {
    kind_ = Kind::kThin;
    slices_.push_back(
        {thin->slice, archName(thin->slice.cputype, thin->slice.cpusubtype), bytes(), ""});
  }
  return true;
}

void ObjectFile::readTable() {
  for (uint32_t i = 0; i < table_->count(); ++i) {
    const auto entry = table_->entry(i);
    if (!entry) {
      problem_ = fmt::format("table of {} architectures extends past the end of the file",
                             table_->count());
      return;
    }
    const uint64_t room = bytes().size() - std::min(entry->offset, bytes().size());
    slices_.push_back({*entry, archName(entry->cputype, entry->cpusubtype),
                       bytes().sub(entry->offset, std::min(entry->size, room)),
                       problemOf(*entry, i, bytes())});
  }
}

bool chooseSlices(const ObjectFile& file, const std::vector<std::string>& archs,
                  std::vector<const Slice*>* chosen, std::string* missing) {
  if (archs.empty() || std::ranges::find(archs, "all") != archs.end()) {
    for (const Slice& slice : file.slices()) chosen->push_back(&slice);
    return true;
  }
  for (const std::string& name : archs) {
    const auto wanted = archByName(name);
    const size_t before = chosen->size();
    for (const Slice& slice : file.slices()) {
      if (wanted && sameArch(*wanted, {slice.entry.cputype, slice.entry.cpusubtype})) {
        chosen->push_back(&slice);
      }
    }
    if (chosen->size() == before) {
      *missing = name;
      return false;
    }
  }
  return true;
}

}  // namespace tovrek::macho
