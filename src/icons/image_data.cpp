#include "icons/image_data.h"

#include <fmt/format.h>
#include <libdeflate.h>

#include <algorithm>
#include <memory>

#include "host/Freer.h"

namespace tovrek {
namespace {

using Decompressor = std::unique_ptr<libdeflate_decompressor, Freer<libdeflate_free_decompressor>>;
using Compressor = std::unique_ptr<libdeflate_compressor, Freer<libdeflate_free_compressor>>;

// A deflate stream holds at most 258 bytes for every two bits of its own.
constexpr uint64_t kMaxExpansion = 1032;

constexpr int kFastest = 1;

}  // namespace

std::optional<std::vector<uint8_t>> inflateImageData(std::string_view packed,
                                                     DeflateWrapping wrapping,
                                                     uint64_t expectedSize, uint64_t room,
                                                     ErrorText* error) {
  const Decompressor decompressor(libdeflate_alloc_decompressor());
  std::vector<uint8_t> bytes(std::min(room, packed.size() * kMaxExpansion));
  size_t got = 0;
  libdeflate_result result = LIBDEFLATE_BAD_DATA;
  if (decompressor != nullptr) {
    const auto inflate = wrapping == DeflateWrapping::kZlib ? libdeflate_zlib_decompress
                                                            : libdeflate_deflate_decompress;
    result =
        inflate(decompressor.get(), packed.data(), packed.size(), bytes.data(), bytes.size(), &got);
  }
  if (result != LIBDEFLATE_SUCCESS) {
    fail(error, "unspecified decompression error");
    return std::nullopt;
  }
  if (got != expectedSize) {
    fail(error,
         fmt::format("decompression error, expected {} but got {} bytes", expectedSize, got));
    return std::nullopt;
  }
  return bytes;
}

uint64_t deflatedBound(uint64_t size) {
  return std::max<uint64_t>(2 * size, libdeflate_zlib_compress_bound(nullptr, size));
}

std::optional<std::string> deflateImageData(const std::vector<uint8_t>& bytes, ErrorText* error) {
  const Compressor compressor(libdeflate_alloc_compressor(kFastest));
  // Not cleared, so that pages which stay empty take no memory.
  const uint64_t room = deflatedBound(bytes.size());
  const auto packed = std::make_unique_for_overwrite<char[]>(room);
  size_t size = 0;
  if (compressor != nullptr) {
    size =
        libdeflate_zlib_compress(compressor.get(), bytes.data(), bytes.size(), packed.get(), room);
  }
  if (size == 0) {
    fail(error, "unspecified compression error");
    return std::nullopt;
  }
  return std::string(packed.get(), size);
}

uint32_t pngCrc(std::string_view typeAndData) {
  return libdeflate_crc32(0, typeAndData.data(), typeAndData.size());
}

}  // namespace tovrek
