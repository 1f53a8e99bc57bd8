#include "macho/FatFile.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/bytes.h"
#include "macho/layout.h"

namespace tovrek::macho {
namespace {

constexpr uint64_t kMaxStored = 0xffffffff;
// 2^15 is the largest page size in use; more would only blow files up.
constexpr uint32_t kMaxAlign = 15;

bool refuseOverlaps(std::vector<FatSlice> slices, uint64_t tableEnd, ErrorText* error) {
  std::ranges::sort(slices, {}, &FatSlice::offset);
  uint64_t end = tableEnd;
  for (const FatSlice& slice : slices) {
    if (slice.offset < end) {
      return fail(error,
                  fmt::format("slice at offset {} overlaps what ends at {}", slice.offset, end));
    }
    end = slice.offset + slice.size;
  }
  return true;
}

template <class P>
bool readThin(ByteView file, FatSlice* out) {
  macho_header<P> header;
  if (!file.read(0, &header) || header.magic != P::kMagic) return false;
  *out = {header.cputype, header.cpusubtype, 0, file.size(), 0};
  return true;
}

bool readTable(ByteView file, FatFile* out, ErrorText* error) {
  const uint32_t count = fatEntryCount(file);
  const uint64_t tableEnd = sizeof(fat_header) + uint64_t{count} * sizeof(fat_arch);
  if (tableEnd > file.size()) {
    return fail(error, fmt::format("table of {} architectures extends beyond the file", count));
  }
  for (uint32_t i = 0; i < count; ++i) {
    FatSlice slice;
    if (!readFatEntry(file, i, &slice) || !file.contains(slice.offset, slice.size)) {
      return fail(error, fmt::format("slice {} extends beyond the file", i));
    }
    out->slices.push_back(slice);
  }
  return refuseOverlaps(out->slices, tableEnd, error);
}

}  // namespace

bool hasFatMagic(ByteView file) {
  Stored<uint32_t, BigEndian> magic;
  return file.read(0, &magic) && magic == kFatMagic;
}

uint32_t fatEntryCount(ByteView file) {
  fat_header header;
  if (!file.read(0, &header)) return 0;
  return header.nfat_arch;
}

bool readFatEntry(ByteView file, uint64_t index, FatSlice* out) {
  fat_arch entry;
  if (!file.read(sizeof(fat_header) + index * sizeof(fat_arch), &entry)) return false;
  *out = {entry.cputype, entry.cpusubtype, entry.offset, entry.size, entry.align};
  return true;
}

bool FatFile::read(ByteView file, FatFile* out, ErrorText* error) {
  *out = {};
  if (hasFatMagic(file)) {
    out->fat = true;
    return readTable(file, out, error);
  }
  FatSlice slice;
  if (!readThin<Pointer32<LittleEndian>>(file, &slice) &&
      !readThin<Pointer64<LittleEndian>>(file, &slice) &&
      !readThin<Pointer32<BigEndian>>(file, &slice) &&
      !readThin<Pointer64<BigEndian>>(file, &slice)) {
    return fail(error, "not a Mach-O file");
  }
  out->slices.push_back(slice);
  return true;
}

bool layOutFatFile(std::span<FatSlice> slices, ErrorText* error) {
  uint64_t end = sizeof(fat_header) + slices.size() * sizeof(fat_arch);
  for (FatSlice& slice : slices) {
    slice.align = std::min(slice.align, kMaxAlign);
    slice.offset = alignUp(end, uint64_t{1} << slice.align);
    if (slice.offset > kMaxStored || slice.size > kMaxStored) {
      return fail(error, "the slices are too large for a universal file");
    }
    end = slice.offset + slice.size;
  }
  return true;
}

std::string fatFileHeader(std::span<const FatSlice> slices) {
  std::string bytes;
  const auto append = [&bytes](const auto& record) {
    const void* start = &record;
    bytes.append(static_cast<const char*>(start), sizeof(record));
  };
  append(fat_header{kFatMagic, static_cast<uint32_t>(slices.size())});
  for (const FatSlice& slice : slices) {
    append(fat_arch{slice.cputype, slice.cpusubtype, static_cast<uint32_t>(slice.offset),
                    static_cast<uint32_t>(slice.size), slice.align});
  }
  return bytes;
}

}  // namespace tovrek::macho
