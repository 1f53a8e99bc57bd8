// Packing a large file in pieces.
#pragma once

#include <cstddef>
#include <memory>

#include "archive/deflate.h"

namespace tovrek::archive {

inline constexpr size_t kPieceSize = 512 << 10;
// How far back packed bytes may refer.
inline constexpr size_t kReach = 32 << 10;

// How much time is spent on a piece. On programs' code the first two take a fifth and two fifths of
// the time of deflate.h's usual level and give some 12 and 9 % more bytes; the last takes half as
// long again for 2 %.
enum class PieceMethod { kQuick, kFast, kThorough };

// Each piece is packed by itself, in any thread; the results one behind the other are the deflated
// form of the whole. They depend on the contents and the method alone.
class PieceDeflater {
 public:
  PieceDeflater();
  ~PieceDeflater();
  PieceDeflater(PieceDeflater&&) noexcept;

  // Packs `piece`; `before` are the bytes in front of it, kReach of them where there are so many.
  // Empty without memory.
  Buffer deflate(PieceMethod method, Bytes before, Bytes piece, bool isLast);

 private:
  struct Quick;
  std::unique_ptr<Quick> quick_;
};

}  // namespace tovrek::archive
