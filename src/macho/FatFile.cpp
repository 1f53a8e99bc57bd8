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

bool readTable(ByteView file, const FatTable& table, FatFile* out, ErrorText* error) {
  if (table.end() > file.size()) {
    return fail(error,
                fmt::format("table of {} architectures extends beyond the file", table.count()));
  }
  for (uint32_t i = 0; i < table.count(); ++i) {
    const auto slice = table.entry(i);
    if (!slice || !file.contains(slice->offset, slice->size)) {
      return fail(error, fmt::format("slice {} extends beyond the file", i));
    }
    out->slices.push_back(*slice);
  }
  return refuseOverlaps(out->slices, table.end(), error);
}

}  // namespace

bool FatFile::read(ByteView file, FatFile* out, ErrorText* error) {
  *out = {};
  const auto table = FatTable::find(file);
  if (table && !table->isWide()) {
    out->fat = true;
    return readTable(file, *table, out, error);
  }
  const auto thin = readThin(file);
  if (!thin || file.size() < thin->headerSize) return fail(error, "not a Mach-O file");
  out->slices.push_back(thin->slice);
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
