// How large files get into an archive: never held in memory as a whole.
#pragma once

#include <cstdint>
#include <vector>

#include "archive/PackedSource.h"
#include "archive/PieceDeflater.h"
#include "programs/zip/FileList.h"

namespace tovrek::zip {

// What is packed at this level or a lower one may be replaced by the packed form that a file had in
// the archive it came from.
inline constexpr int kUsualLevel = 6;

// Larger files are planned for; smaller ones are read and packed at once.
inline constexpr uint64_t kLargestRead = 256 << 10;

// How the pieces of files are packed. The quicker methods cost bytes.
struct PieceMethods {
  bool quick = false;
  double fastShare = 0;  // of pieces, where they are not all to be quick; the others are thorough

  archive::PieceMethod of(uint64_t piece) const;
};

struct LargeFile {
  enum class Way {
    kWhole,   // mapped and packed, or compared, in one go
    kStore,   // copied while it is written
    kLeft,    // copied from where it was left
    kReuse,   // the packed form of `known`, if it turns out to be that of this file
    kPieces,  // packed in pieces, by `methods`
  };
  Way way = Way::kWhole;
  const archive::Entry* known = nullptr;
  PieceMethods methods{};
  uint64_t newBytes = 0;  // about how many packed bytes it will take that no archive has

  uint64_t pieceCount(uint64_t size) const {
    return way == Way::kPieces ? (size + archive::kPieceSize - 1) / archive::kPieceSize : 1;
  }
};

// Plans for all items, in their order; those that are no large files have the default. How quickly
// pieces may be packed depends on how much of the package has to be packed anew: code that makes up
// a small part of an app may take more room than code that is all of it.
// The plans depend on the contents, the source (which may be null) and the level alone.
std::vector<LargeFile> planLargeFiles(const std::vector<const SourceItem*>& items,
                                      const archive::PackedSource* source, int level);

}  // namespace tovrek::zip
