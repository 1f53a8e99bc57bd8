#include "archive/deflate.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/parallel.h"

namespace tovrek::archive {
namespace {

constexpr size_t kTrialPiece = 4096;

bool isArchive(Bytes contents) {
  return contents.size() > kLocalHeaderSize && numberAt<uint32_t>(contents, 0) == kLocalHeader;
}

}  // namespace

uint32_t crcOf(Bytes bytes, uint32_t start) {
  // Called with no data, libdeflate answers its start value whatever was given.
  return bytes.empty() ? start : libdeflate_crc32(start, bytes.data(), bytes.size());
}

uint32_t crcByAll(Bytes bytes) {
  constexpr size_t kPart = 4 << 20;
  if (bytes.size() <= kPart) return crcOf(bytes);
  std::vector<uint32_t> parts((bytes.size() + kPart - 1) / kPart);
  const auto partAt = [&](size_t i) {
    return bytes.subspan(i * kPart, std::min(kPart, bytes.size() - i * kPart));
  };
  forEachPart(parts.size(), 1, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) parts[i] = crcOf(partAt(i));
  });
  uint32_t crc = 0;
  for (size_t i = 0; i < parts.size(); ++i) {
    const auto size = static_cast<z_off_t>(partAt(i).size());
    crc = static_cast<uint32_t>(::crc32_combine(crc, parts[i], size));
  }
  return crc;
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

std::optional<uint64_t> estimatedPackedSize(Bytes contents) {
  constexpr size_t kMostPieces = 64;
  constexpr size_t kBytesPerPiece = 32768;
  const size_t pieces = std::clamp<size_t>(contents.size() / kBytesPerPiece, 4, kMostPieces);
  // From the middle of each part: the ends of a file are often unlike the rest of it.
  const size_t step = contents.size() / pieces;
  const size_t first = (step - kTrialPiece) / 2;
  const Buffer sample(pieces * kTrialPiece);
  const Buffer packed(pieces * kTrialPiece);
  if (sample.bytes().empty() || packed.bytes().empty()) return std::nullopt;
  for (size_t i = 0; i < pieces; ++i) {
    std::memcpy(&sample.bytes()[i * kTrialPiece], &contents[first + i * step], kTrialPiece);
  }
  const size_t size = pieces * kTrialPiece;
  constexpr int kFastest = 1;
  const size_t packedSize = Deflater(kFastest).deflate(sample.bytes(), packed.bytes());
  if (packedSize == 0) return std::nullopt;
  // What an archive holds was packed already, as far as somebody found it worth while: the little
  // that its directory and its most even entries still gain does not pay for a whole second round.
  constexpr size_t kShareOfArchive = 50;
  const bool isWorth = isArchive(contents) ? packedSize < size - size / kShareOfArchive
                                           : isWorthPacking(size, packedSize);
  if (!isWorth) return std::nullopt;
  return contents.size() / size * packedSize;
}

bool looksCompressible(Bytes contents) {
  if (contents.size() <= 4 * kTrialPiece) return true;  // packing it is as quick
  return estimatedPackedSize(contents).has_value();
}

}  // namespace tovrek::archive
