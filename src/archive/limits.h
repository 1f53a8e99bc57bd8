// How much an archive from outside may hold. Real apps stay far below; the limits keep a small file
// from filling the disk, and from making folders that no path reaches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "archive/Entry.h"
#include "host/ErrorText.h"

namespace tovrek::archive {

struct ArchiveLimits {
  size_t entries = 1'000'000;
  // Of one name: its bytes, half of what the system takes for a path, and folders inside each
  // other.
  size_t nameBytes = 2048;
  size_t depth = 500;
  // Entries that take more than this together may not take more than so many times their packed
  // size. What is packed well is text of some megabytes; that much of it is made to do harm.
  uint64_t freeBytes = uint64_t{1} << 30;
  uint64_t growth = 100;
};

// Whether the entries may be unpacked; the text names the limit that they pass.
bool isWithin(const ArchiveLimits& limits, std::span<const Entry* const> entries, ErrorText* error);

}  // namespace tovrek::archive
