// Packing and unpacking of single entries.
#pragma once

#include <libdeflate.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>

#include "archive/zip_records.h"
#include "host/Freer.h"

namespace tovrek::archive {

// The most bytes that this many deflated bytes can unpack to.
constexpr uint64_t mostInflated(uint64_t compressedSize) {
  constexpr uint64_t kMostExpansion = 1032;  // 258 bytes from two bits
  return compressedSize > UINT64_MAX / kMostExpansion ? UINT64_MAX
                                                      : compressedSize * kMostExpansion;
}

// The same for bzip2: a block of 900,000 bytes of which five stand for up to 259.
constexpr uint64_t mostBunzipped(uint64_t compressedSize) {
  constexpr uint64_t kMostInBlock = uint64_t{900'000} / 5 * 259;
  constexpr uint64_t kSmallestBlock = 20;
  const uint64_t blocks = compressedSize / kSmallestBlock + 1;
  return blocks > UINT64_MAX / kMostInBlock ? UINT64_MAX : blocks * kMostInBlock;
}

uint32_t crcOf(Bytes bytes, uint32_t start = 0);
// The same by all processors, where there are bytes enough.
uint32_t crcByAll(Bytes bytes);

// A fixed piece of memory, not cleared first: pages that are never written cost nothing. Empty when
// there is not so much memory to be had.
class Buffer {
 public:
  Buffer() = default;
  explicit Buffer(size_t size)
      : data_(new (std::nothrow) std::byte[size]), size_(data_ == nullptr ? 0 : size) {}
  std::span<std::byte> bytes() const { return {data_.get(), size_}; }
  void shrinkTo(size_t size) { size_ = size; }
  // At least `size` bytes, with the memory that is there already where it is enough. Empty without.
  std::span<std::byte> atLeast(size_t size) {
    if (size_ < size) {
      *this = Buffer();  // the old one first
      *this = Buffer(size);
    }
    return bytes().first(std::min(size, size_));
  }

 private:
  std::unique_ptr<std::byte[]> data_;
  size_t size_ = 0;
};

class Inflater {
 public:
  // Unpacks deflated bytes. True when they are sound, end with their last byte and give exactly
  // as many bytes as `target` has.
  bool inflate(Bytes packed, std::span<std::byte> target);

 private:
  std::unique_ptr<libdeflate_decompressor, Freer<libdeflate_free_decompressor>> state_{
      libdeflate_alloc_decompressor()};
};

class Deflater {
 public:
  explicit Deflater(int level) : state_(libdeflate_alloc_compressor(level)) {}
  // Packs `contents` into `target`. The number of bytes, or 0 when they do not fit.
  size_t deflate(Bytes contents, std::span<std::byte> target);

 private:
  std::unique_ptr<libdeflate_compressor, Freer<libdeflate_free_compressor>> state_;
};

// Whether the packed form is so much smaller that it is worth unpacking later. Data that are
// packed already, of any kind, gain well below a hundredth.
constexpr bool isWorthPacking(uint64_t size, uint64_t packedSize) {
  return packedSize < size - size / 100;
}

// Whether packing `contents` is worth the time: judged by a quick trial on pieces spread over it.
bool looksCompressible(Bytes contents);
// About what packing gives, by the same trial; none where it is not worth the time. Not for
// contents of a few kilobytes.
std::optional<uint64_t> estimatedPackedSize(Bytes contents);

}  // namespace tovrek::archive
