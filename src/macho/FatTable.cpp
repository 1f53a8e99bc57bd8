#include "macho/FatTable.h"

#include "macho/layout.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

// Entries with offsets and sizes of 64 bits, for images beyond 4 GB.
constexpr uint32_t kWideFatMagic = 0xcafebabf;
struct WideFatArch {
  Stored<uint32_t, BigEndian> cputype, cpusubtype;
  Stored<uint64_t, BigEndian> offset, size;
  Stored<uint32_t, BigEndian> align, reserved;
};
static_assert(kIsRecord<WideFatArch, 32>);

template <class Entry>
std::optional<FatSlice> readEntry(ByteView file, uint64_t offset) {
  Entry entry;
  if (!file.read(offset, &entry)) return std::nullopt;
  return FatSlice{entry.cputype, entry.cpusubtype, entry.offset, entry.size, entry.align};
}

}  // namespace

std::optional<FatTable> FatTable::find(ByteView file) {
  Stored<uint32_t, BigEndian> magic;
  if (!file.read(0, &magic) || (magic != kFatMagic && magic != kWideFatMagic)) return std::nullopt;
  FatTable table;
  table.file_ = file;
  table.wide_ = magic == kWideFatMagic;
  fat_header header;
  if (file.read(0, &header)) table.count_ = header.nfat_arch;
  return table;
}

uint64_t FatTable::entrySize() const {
  return wide_ ? sizeof(WideFatArch) : sizeof(fat_arch);
}

uint64_t FatTable::end() const {
  return sizeof(fat_header) + count_ * entrySize();
}

std::optional<FatSlice> FatTable::entry(uint32_t index) const {
  const uint64_t offset = sizeof(fat_header) + index * entrySize();
  return wide_ ? readEntry<WideFatArch>(file_, offset) : readEntry<fat_arch>(file_, offset);
}

std::optional<ThinImage> readThin(ByteView file) {
  std::optional<ThinImage> image;
  visitModel(file, [&]<class P>() {
    typename P::Word words[3];  // magic number, cputype, cpusubtype
    if (!file.read(0, &words)) return;
    image = {{words[1], words[2], 0, file.size(), 0}, sizeof(macho_header<P>)};
  });
  return image;
}

}  // namespace tovrek::macho
