#include "archive/packed_copy.h"

#include <algorithm>
#include <cstring>

#include "archive/PieceInflater.h"

namespace tovrek::archive {
namespace {

constexpr size_t kStep = 256 << 10;

// What a file holds, compared piece by piece with what unpacking gives.
class Comparison {
 public:
  explicit Comparison(const InputFile& file) : file_(file) {}

  // Whether these bytes come next. A file that cannot be read is told of in `error`.
  bool isNext(Bytes unpacked, ErrorText* error) {
    const auto present = present_.atLeast(unpacked.size()).first(unpacked.size());
    const auto got = file_.readAt(offset_, present, error);
    offset_ += unpacked.size();
    return got && *got == unpacked.size() &&
           std::memcmp(present.data(), unpacked.data(), unpacked.size()) == 0;
  }
  bool isWhole() const { return offset_ == file_.status().size; }

 private:
  const InputFile& file_;
  Buffer present_;
  uint64_t offset_ = 0;
};

}  // namespace

Copied copyWhileSame(Bytes packed, const InputFile& file,
                     const std::function<bool(Bytes piece)>& write, ErrorText* error) {
  Comparison comparison(file);
  PieceInflater inflater;
  const Buffer copy(kStep);
  ErrorText reason;
  while (!packed.empty() && !copy.bytes().empty()) {
    // Nobody else changes the copy.
    const auto piece = copy.bytes().first(std::min(kStep, packed.size()));
    std::memcpy(piece.data(), packed.data(), piece.size());
    packed = packed.subspan(piece.size());
    const bool same =
        inflater.feed(piece, [&](Bytes unpacked) { return comparison.isNext(unpacked, &reason); });
    if (!same) break;
    if (!write(piece)) return Copied::kFailed;
    if (packed.empty() && inflater.hasEnded() && comparison.isWhole()) return Copied::kSame;
  }
  if (!reason.isSet()) return Copied::kDiffers;
  fail(error, reason.text());
  return Copied::kFailed;
}

}  // namespace tovrek::archive
