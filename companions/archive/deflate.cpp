#include "companions/archive/deflate.h"

#include <array>
#include <cstring>

namespace tovrek::archive {

uint32_t crcOf(Bytes bytes, uint32_t start) {
  // Called with no data, libdeflate answers its start value whatever was given.
  return bytes.empty() ? start : libdeflate_crc32(start, bytes.data(), bytes.size());
}

bool Inflater::inflate(Bytes packed, std::span<std::byte> target) {
  std::byte none{};
  size_t taken = 0;
  const libdeflate_result result = libdeflate_deflate_decompress_ex(
      state_.get(), packed.data(), packed.size(), target.empty() ? &none : target.data(),
      target.size(), &taken, nullptr);
  return result == LIBDEFLATE_SUCCESS && taken == packed.size();
}

size_t Deflater::deflate(Bytes contents, std::span<std::byte> target) {
  return libdeflate_deflate_compress(state_.get(), contents.data(), contents.size(), target.data(),
                                     target.size());
}

bool looksCompressible(Bytes contents) {
  constexpr size_t kPieces = 8;
  constexpr size_t kPieceSize = 8192;
  if (contents.size() <= kPieces * kPieceSize) return true;  // packing it is as quick
  std::array<std::byte, kPieces * kPieceSize> sample{};
  const size_t step = (contents.size() - kPieceSize) / (kPieces - 1);
  for (size_t i = 0; i < kPieces; ++i) {
    std::memcpy(&sample[i * kPieceSize], &contents[i * step], kPieceSize);
  }
  constexpr int kFastest = 1;
  // Packed data of any kind gains well below a hundredth.
  std::array<std::byte, kPieces * kPieceSize / 100 * 99> packed{};
  return Deflater(kFastest).deflate(sample, packed) != 0;
}

}  // namespace tovrek::archive
