// The IHDR chunk of a PNG file and what follows from it about the image data.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

// One of the seven reduced images of an interlaced file, or the whole image of any other. Its
// rows stand one after the other in the image data, each behind a byte that names its filter.
struct PngPass {
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t bytesPerLine = 0;

  // Filter bytes and rows; a pass without pixels has neither. Capped at UINT64_MAX.
  uint64_t dataSize() const;
};

struct PngHeader {
  uint32_t width = 0, height = 0;
  int bitDepth = 0, colorType = 0;
  int compression = 0, filter = 0, interlace = 0;

  // Parses and checks the chunk's data. None, with the reason, for what the format excludes.
  static std::optional<PngHeader> parse(std::string_view data, ErrorText* error);

  bool hasAlpha() const { return colorType == kRgba; }
  // The kinds whose pixels are decoded: RGB and RGBA of eight bits a channel.
  bool isEightBitColor() const { return bitDepth == 8 && (colorType == kRgb || hasAlpha()); }
  int bitsPerPixel() const;
  // In file order; seven for an interlaced image, else one.
  std::vector<PngPass> passes() const;
  // Size of the image data when inflated. Capped at UINT64_MAX.
  uint64_t dataSize() const;
  // Several lines of text for people.
  std::string description() const;

 private:
  static constexpr int kRgb = 2;
  static constexpr int kRgba = 6;
};

}  // namespace tovrek
