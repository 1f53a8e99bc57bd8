#include "tests/support/PngBuilder.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstdlib>
#include <random>

namespace tovrek::test {
namespace {

// The picture made of every dx-th column from x and every dy-th row from y.
Picture sampled(const Picture& from, uint32_t x, uint32_t y, uint32_t dx, uint32_t dy) {
  Picture part{0, 0, from.channels, {}};
  for (uint32_t row = y; row < from.height; row += dy) {
    uint32_t columns = 0;
    for (uint32_t column = x; column < from.width; column += dx, columns++) {
      const uint8_t* pixel = from.at(column, row);
      part.bytes.insert(part.bytes.end(), pixel, pixel + from.channels);
    }
    part.width = columns;
    part.height++;
  }
  return part;
}

// As the device stores pixels: blue first, colours multiplied by alpha.
Picture stored(Picture picture, bool premultiply) {
  const size_t step = static_cast<size_t>(picture.channels);
  for (size_t i = 0; i < picture.bytes.size(); i += step) {
    uint8_t* pixel = &picture.bytes[i];
    std::swap(pixel[0], pixel[2]);
    if (step < 4 || !premultiply) continue;
    for (int c = 0; c < 3; c++) pixel[c] = static_cast<uint8_t>((pixel[c] * pixel[3] + 127) / 255);
  }
  return picture;
}

int nearest(int a, int b, int c) {
  const int p = a + b - c, pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
  return pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
}

std::string filteredRows(const Picture& picture, int filter) {
  std::string rows;
  if (picture.width == 0) return rows;
  const int step = picture.channels;
  const int line = static_cast<int>(picture.width) * step;
  const auto byteAt = [&](int x, int y) -> int {
    return x < 0 || y < 0 ? 0 : picture.bytes[static_cast<size_t>(y) * line + x];
  };
  for (int y = 0; y < static_cast<int>(picture.height); y++) {
    const int type = filter >= 0 ? filter : y % 5;
    rows.push_back(static_cast<char>(type));
    for (int x = 0; x < line; x++) {
      const int left = byteAt(x - step, y), up = byteAt(x, y - 1), corner = byteAt(x - step, y - 1);
      const int predictions[] = {0, left, up, (left + up) / 2, nearest(left, up, corner)};
      rows.push_back(static_cast<char>(byteAt(x, y) - predictions[std::min(type, 4)]));
    }
  }
  return rows;
}

std::string imageData(const Picture& picture, const PngForm& form) {
  if (!form.interlaced) return filteredRows(picture, form.filter);
  constexpr uint32_t kPasses[7][4] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                                      {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};
  std::string rows;
  for (const auto& [x, y, dx, dy] : kPasses) {
    rows += filteredRows(sampled(picture, x, y, dx, dy), form.filter);
  }
  return rows;
}

}  // namespace

Picture noisePicture(uint32_t width, uint32_t height, int channels, uint32_t seed) {
  Picture picture{width, height, channels, {}};
  std::mt19937 random(seed);
  picture.bytes.resize(size_t{width} * height * static_cast<size_t>(channels));
  for (uint8_t& byte : picture.bytes) byte = static_cast<uint8_t>(random());
  for (size_t i = 3; channels == 4 && i < picture.bytes.size(); i += 4) {
    if (random() % 3 == 0) picture.bytes[i] = random() % 2 == 0 ? 255 : 0;
  }
  return picture;
}

std::string bigEndian32(uint32_t value) {
  return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
          static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string pngSignature() {
  return {"\x89PNG\r\n\x1a\n", 8};
}

std::string pngChunk(std::string_view type, std::string_view data) {
  const std::string body = std::string(type) + std::string(data);
  return bigEndian32(static_cast<uint32_t>(data.size())) + body +
         bigEndian32(libdeflate_crc32(0, body.data(), body.size()));
}

std::string cgbiChunk() {
  return pngChunk("CgBI", {"\x50\x00\x20\x02", 4});
}

std::string pngHeaderChunk(uint32_t width, uint32_t height, int bitDepth, int colorType,
                           int interlace, int compression, int filter) {
  std::string data = bigEndian32(width) + bigEndian32(height);
  for (const int field : {bitDepth, colorType, compression, filter, interlace}) {
    data.push_back(static_cast<char>(field));
  }
  return pngChunk("IHDR", data);
}

std::string deflated(std::string_view bytes, bool zlib) {
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
  std::string packed(libdeflate_zlib_compress_bound(compressor, bytes.size()), '\0');
  const auto compress = zlib ? libdeflate_zlib_compress : libdeflate_deflate_compress;
  packed.resize(compress(compressor, bytes.data(), bytes.size(), packed.data(), packed.size()));
  libdeflate_free_compressor(compressor);
  return packed;
}

std::string pngFile(const Picture& picture, const PngForm& form) {
  const Picture pixels = form.optimised ? stored(picture, form.premultiply) : picture;
  std::string file = pngSignature();
  if (form.optimised) file += cgbiChunk();
  file += pngHeaderChunk(picture.width, picture.height, 8, picture.channels == 4 ? 6 : 2,
                         form.interlaced ? 1 : 0);
  file += form.extraChunks;
  const std::string data = deflated(imageData(pixels, form), !form.optimised);
  const size_t piece = data.size() / form.imageChunks + 1;
  for (size_t at = 0; at < data.size(); at += piece) {
    file += pngChunk("IDAT", std::string_view(data).substr(at, piece));
  }
  return file + pngChunk("IEND", "");
}

}  // namespace tovrek::test
