#include "archive/PieceDeflater.h"

#include <isa-l/igzip_lib.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace tovrek::archive {
namespace {

// The libraries do not write through their input pointers.
unsigned char* inputOf(Bytes bytes) {
  return const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>(bytes.data()));
}

unsigned char* outputOf(std::span<std::byte> bytes) {
  return reinterpret_cast<unsigned char*>(bytes.data());
}

// What does not get smaller stands as it is, in blocks of up to 64 KB with five bytes before each.
Buffer storedBlocks(Bytes piece, bool isLast) {
  constexpr size_t kLongest = 0xffff;
  constexpr size_t kHeader = 5;
  Buffer blocks(piece.size() + kHeader * (piece.size() / kLongest + 1));
  if (blocks.bytes().empty()) return blocks;
  size_t filled = 0;
  for (size_t at = 0; at < piece.size();) {
    const size_t length = std::min(kLongest, piece.size() - at);
    std::byte* block = &blocks.bytes()[filled];
    const bool isEnd = isLast && at + length == piece.size();
    block[0] = static_cast<std::byte>(isEnd ? 1 : 0);
    block[1] = static_cast<std::byte>(length & 0xff);
    block[2] = static_cast<std::byte>(length >> 8);
    block[3] = ~block[1];
    block[4] = ~block[2];
    std::memcpy(block + kHeader, &piece[at], length);
    filled += kHeader + length;
    at += length;
  }
  blocks.shrinkTo(filled);
  return blocks;
}

// zlib at a middling level. The number of bytes, or 0 when they do not fit.
size_t deflateThoroughly(Bytes before, Bytes piece, bool isLast, std::span<std::byte> room) {
  constexpr int kLevel = 4;
  constexpr int kRawDeflate = -MAX_WBITS;
  constexpr int kMemoryLevel = 8;
  z_stream stream{};
  if (::deflateInit2(&stream, kLevel, Z_DEFLATED, kRawDeflate, kMemoryLevel, Z_DEFAULT_STRATEGY) !=
      Z_OK) {
    return 0;
  }
  bool good = before.empty() || ::deflateSetDictionary(&stream, inputOf(before),
                                                       static_cast<uInt>(before.size())) == Z_OK;
  stream.next_in = inputOf(piece);
  stream.avail_in = static_cast<uInt>(piece.size());
  stream.next_out = outputOf(room);
  stream.avail_out = static_cast<uInt>(room.size());
  const int result = ::deflate(&stream, isLast ? Z_FINISH : Z_SYNC_FLUSH);
  // A flush that needs more room leaves none.
  good = good && (isLast ? result == Z_STREAM_END : result == Z_OK && stream.avail_out != 0);
  good = good && stream.avail_in == 0;
  const size_t size = stream.total_out;
  ::deflateEnd(&stream);
  return good ? size : 0;
}

}  // namespace

// ISA-L's state and the tables that its levels work with.
struct PieceDeflater::Quick {
  isal_zstream stream;
  std::unique_ptr<unsigned char[]> tables{new unsigned char[ISAL_DEF_LVL3_DEFAULT]};

  // As deflateThoroughly().
  size_t deflate(unsigned level, Bytes before, Bytes piece, bool isLast,
                 std::span<std::byte> room) {
    ::isal_deflate_init(&stream);
    stream.level = level;
    stream.level_buf = tables.get();
    stream.level_buf_size = level == 2 ? ISAL_DEF_LVL2_DEFAULT : ISAL_DEF_LVL3_DEFAULT;
    if (!before.empty() && ::isal_deflate_set_dict(&stream, inputOf(before),
                                                   static_cast<uint32_t>(before.size())) != 0) {
      return 0;
    }
    stream.next_in = inputOf(piece);
    stream.avail_in = static_cast<uint32_t>(piece.size());
    stream.next_out = outputOf(room);
    stream.avail_out = static_cast<uint32_t>(room.size());
    stream.end_of_stream = isLast ? 1 : 0;
    stream.flush = isLast ? NO_FLUSH : SYNC_FLUSH;
    const int result = ::isal_deflate(&stream);
    const bool good = result == COMP_OK && stream.avail_in == 0 && stream.avail_out != 0;
    return good ? stream.total_out : 0;
  }
};

PieceDeflater::PieceDeflater() = default;
PieceDeflater::~PieceDeflater() = default;
PieceDeflater::PieceDeflater(PieceDeflater&&) noexcept = default;

Buffer PieceDeflater::deflate(PieceMethod method, Bytes before, Bytes piece, bool isLast) {
  const Buffer room(piece.size());
  if (room.bytes().empty()) return Buffer();
  size_t size = 0;
  if (method == PieceMethod::kThorough) {
    size = deflateThoroughly(before, piece, isLast, room.bytes());
  } else {
    if (quick_ == nullptr) quick_ = std::make_unique<Quick>();
    const unsigned level = method == PieceMethod::kQuick ? 2 : 3;
    size = quick_->deflate(level, before, piece, isLast, room.bytes());
  }
  if (size == 0) return storedBlocks(piece, isLast);
  // The room is larger by far than what is kept for its turn.
  Buffer packed(size);
  if (!packed.bytes().empty()) std::memcpy(packed.bytes().data(), room.bytes().data(), size);
  return packed;
}

}  // namespace tovrek::archive
