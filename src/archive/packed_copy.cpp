#include "archive/packed_copy.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "host/Freer.h"

namespace tovrek::archive {
namespace {

constexpr size_t kStep = 256 << 10;

class Comparison {
 public:
  explicit Comparison(const InputFile& file) : file_(file) {
    constexpr int kRawDeflate = -MAX_WBITS;
    good_ = ::inflateInit2(&stream_, kRawDeflate) == Z_OK && !input_.bytes().empty() &&
            !unpacked_.bytes().empty() && !present_.bytes().empty();
  }
  ~Comparison() { ::inflateEnd(&stream_); }
  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  // A copy of these bytes, up to kStep, that nobody else changes.
  Bytes take(Bytes packed) {
    if (!good_) return {};
    const auto piece = input_.bytes().first(std::min(kStep, packed.size()));
    std::memcpy(piece.data(), packed.data(), piece.size());
    return piece;
  }

  // Unpacks the next bytes and compares what they give.
  Copied compare(Bytes piece, ErrorText* error) {
    // The library does not write through its input pointer.
    stream_.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(piece.data()));
    stream_.avail_in = static_cast<uInt>(piece.size());
    for (bool full = true; full && !ended_;) {
      stream_.next_out = reinterpret_cast<Bytef*>(unpacked_.bytes().data());
      stream_.avail_out = kStep;
      const int result = ::inflate(&stream_, Z_NO_FLUSH);
      ended_ = result == Z_STREAM_END;
      if (!ended_ && result != Z_OK && result != Z_BUF_ERROR) return Copied::kDiffers;
      full = stream_.avail_out == 0;
      const Copied same = compareWithFile(kStep - stream_.avail_out, error);
      if (same != Copied::kSame) return same;
    }
    return stream_.avail_in == 0 ? Copied::kSame : Copied::kDiffers;
  }

  bool isWhole() const { return ended_ && offset_ == file_.status().size; }

 private:
  Copied compareWithFile(size_t size, ErrorText* error) {
    const auto got = file_.readAt(offset_, present_.bytes().first(size), error);
    if (!got) return Copied::kFailed;
    offset_ += size;
    const bool same =
        *got == size && std::memcmp(present_.bytes().data(), unpacked_.bytes().data(), size) == 0;
    return same ? Copied::kSame : Copied::kDiffers;
  }

  const InputFile& file_;
  z_stream stream_{};
  Buffer input_{kStep};
  Buffer unpacked_{kStep};
  Buffer present_{kStep};
  uint64_t offset_ = 0;
  bool good_ = false;
  bool ended_ = false;
};

}  // namespace

Copied copyWhileSame(Bytes packed, const InputFile& file,
                     const std::function<bool(Bytes piece)>& write, ErrorText* error) {
  Comparison comparison(file);
  while (!packed.empty()) {
    const Bytes piece = comparison.take(packed);
    if (piece.empty()) return Copied::kDiffers;
    const Copied same = comparison.compare(piece, error);
    if (same != Copied::kSame) return same;
    if (!write(piece)) return Copied::kFailed;
    packed = packed.subspan(piece.size());
  }
  return comparison.isWhole() ? Copied::kSame : Copied::kDiffers;
}

}  // namespace tovrek::archive
