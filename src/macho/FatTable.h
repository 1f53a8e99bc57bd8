// The table of a universal ("fat") file, read without any judgement about it.
#pragma once

#include <cstdint>
#include <optional>

#include "macho/ByteView.h"

namespace tovrek::macho {

// One image inside a file. `align` is a power of two.
struct FatSlice {
  uint32_t cputype = 0, cpusubtype = 0;
  uint64_t offset = 0, size = 0;
  uint32_t align = 0;
};

class FatTable {
 public:
  // None when the file does not start with one of the two magic numbers.
  static std::optional<FatTable> find(ByteView file);

  // Whether entries have 64-bit offsets.
  bool isWide() const { return wide_; }
  // The number of entries that the header claims; 0 when the file ends inside the header.
  uint32_t count() const { return count_; }
  // Where as many entries end.
  uint64_t end() const;
  // None for an entry beyond the file. What it says may be anything.
  std::optional<FatSlice> entry(uint32_t index) const;

 private:
  uint64_t entrySize() const;

  ByteView file_;
  bool wide_ = false;
  uint32_t count_ = 0;
};

// A thin image described as one slice of the whole file, by as much of its header as that takes.
// None when the magic number is not one of a thin image.
struct ThinImage {
  FatSlice slice;
  uint64_t headerSize = 0;  // as it should be; the file may end before
};
std::optional<ThinImage> readThin(ByteView file);

}  // namespace tovrek::macho
