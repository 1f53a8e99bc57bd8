#include "listing/ObjectFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "macho/ArchName.h"
#include "macho/layout.h"

namespace tovrek::listing {
namespace {

using macho::ByteView;
using macho::FatSlice;

// Entries with offsets and sizes of 64 bits, for images beyond 4 GB.
constexpr uint32_t kWideFatMagic = 0xcafebabf;
struct WideFatArch {
  macho::Stored<uint32_t, macho::BigEndian> cputype, cpusubtype;
  macho::Stored<uint64_t, macho::BigEndian> offset, size;
  macho::Stored<uint32_t, macho::BigEndian> align, reserved;
};
static_assert(macho::kIsRecord<WideFatArch, 32>);

// Compiled Java classes share the magic number; what follows is their version, 45 or more.
constexpr uint32_t kMostEntries = 44;

template <class P>
bool readThin(ByteView bytes, FatSlice* out) {
  macho::Stored<uint32_t, typename P::Order> words[3];
  if (!bytes.read(0, &words) || words[0] != P::kMagic) return false;
  *out = {words[1], words[2], 0, bytes.size(), 0};
  return true;
}

bool readThinOfAnyOrder(ByteView bytes, FatSlice* out) {
  using macho::BigEndian, macho::LittleEndian, macho::Pointer32, macho::Pointer64;
  return readThin<Pointer64<LittleEndian>>(bytes, out) ||
         readThin<Pointer32<LittleEndian>>(bytes, out) ||
         readThin<Pointer64<BigEndian>>(bytes, out) || readThin<Pointer32<BigEndian>>(bytes, out);
}

bool readWideEntry(ByteView file, uint64_t index, FatSlice* out) {
  WideFatArch entry;
  if (!file.read(sizeof(macho::fat_header) + index * sizeof(entry), &entry)) return false;
  *out = {entry.cputype, entry.cpusubtype, entry.offset, entry.size, entry.align};
  return true;
}

std::string problemOf(const FatSlice& entry, uint32_t index, ByteView file) {
  if (!file.contains(entry.offset, entry.size)) {
    return fmt::format("offset plus size of slice {} extends past the end of the file", index);
  }
  FatSlice inside;
  if (readThinOfAnyOrder(file.sub(entry.offset, entry.size), &inside) &&
      inside.cputype != entry.cputype) {
    return fmt::format("cputype of slice {} does not match the image there", index);
  }
  return "";
}

}  // namespace

bool ObjectFile::open(const std::string& path, ErrorText* error) {
  path_ = path;
  if (!file_.open(path, error)) return false;
  macho::Stored<uint32_t, macho::BigEndian> magic;
  wide_ = bytes().read(0, &magic) && magic == kWideFatMagic;
  if ((wide_ || macho::hasFatMagic(bytes())) && macho::fatEntryCount(bytes()) <= kMostEntries) {
    kind_ = Kind::kUniversal;
    readTable();
    return true;
  }
  FatSlice entry;
  if (readThinOfAnyOrder(bytes(), &entry)) {
    kind_ = Kind::kThin;
    slices_.push_back({entry, macho::archName(entry.cputype, entry.cpusubtype), bytes(), ""});
  }
  return true;
}

void ObjectFile::readTable() {
  const uint32_t count = macho::fatEntryCount(bytes());
  for (uint32_t i = 0; i < count; ++i) {
    FatSlice entry;
    if (!(wide_ ? readWideEntry(bytes(), i, &entry) : macho::readFatEntry(bytes(), i, &entry))) {
      problem_ = fmt::format("table of {} architectures extends past the end of the file", count);
      return;
    }
    const uint64_t room = bytes().size() - std::min(entry.offset, bytes().size());
    slices_.push_back({entry, macho::archName(entry.cputype, entry.cpusubtype),
                       bytes().sub(entry.offset, std::min(entry.size, room)),
                       problemOf(entry, i, bytes())});
  }
}

bool chooseSlices(const ObjectFile& file, const std::vector<std::string>& archs,
                  std::vector<const Slice*>* chosen, std::string* missing) {
  if (archs.empty() || std::ranges::find(archs, "all") != archs.end()) {
    for (const Slice& slice : file.slices()) chosen->push_back(&slice);
    return true;
  }
  for (const std::string& name : archs) {
    const auto wanted = macho::archByName(name);
    const size_t before = chosen->size();
    for (const Slice& slice : file.slices()) {
      if (wanted && macho::sameArch(*wanted, {slice.entry.cputype, slice.entry.cpusubtype})) {
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

}  // namespace tovrek::listing
