// Universal ("fat") files: several images of different architectures in one file.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "macho/ByteView.h"
#include "macho/FatTable.h"

namespace tovrek::macho {

// The images of a Mach-O file, universal or thin, with all bounds checked.
struct FatFile {
  bool fat = false;              // false: a thin image, described as one slice of the whole file
  std::vector<FatSlice> slices;  // in file order of the table

  // False, with the reason in `error`, when the file is neither, or a slice overlaps another or
  // the table, or reaches beyond the file.
  static bool read(ByteView file, FatFile* out, ErrorText* error);
};

// The table over slices whose type, size and alignment are set: puts each at the next multiple of
// its alignment in the order given, filling in `offset`. False when an offset or size does not
// fit the format's 32 bits.
bool layOutFatFile(std::span<FatSlice> slices, ErrorText* error);
// The header and table for laid-out slices; the images follow at their offsets.
std::string fatFileHeader(std::span<const FatSlice> slices);

}  // namespace tovrek::macho
