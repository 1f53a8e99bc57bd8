// Makes PNG files, platform-optimised (CgBI) or standard, sound or damaged. Shares no code with
// the programs under test.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek::test {

// Eight bits a channel, RGB or RGBA, colours not multiplied by alpha.
struct Picture {
  uint32_t width = 0;
  uint32_t height = 0;
  int channels = 4;
  std::vector<uint8_t> bytes;

  const uint8_t* at(uint32_t x, uint32_t y) const {
    return &bytes[(size_t{y} * width + x) * static_cast<size_t>(channels)];
  }
};

// The same for the same seed. RGBA pictures hold opaque, translucent and transparent pixels.
Picture noisePicture(uint32_t width, uint32_t height, int channels, uint32_t seed = 1);

struct PngForm {
  bool optimised = true;    // CgBI chunk, raw deflate, blue first
  bool premultiply = true;  // only where optimised
  bool interlaced = false;
  int filter = -1;  // of all rows; -1: every type in turn
  size_t imageChunks = 1;
  std::string extraChunks;  // between IHDR and the image data
};

std::string pngFile(const Picture& picture, const PngForm& form = {});

// --- Pieces, for files that pngFile() would not make ---

std::string pngSignature();
std::string pngChunk(std::string_view type, std::string_view data);
std::string pngHeaderChunk(uint32_t width, uint32_t height, int bitDepth = 8, int colorType = 6,
                           int interlace = 0, int compression = 0, int filter = 0);
std::string cgbiChunk();
std::string bigEndian32(uint32_t value);
// Raw deflate, or zlib.
std::string deflated(std::string_view bytes, bool zlib = false);

}  // namespace tovrek::test
