// Editing the inflated image data of an 8-bit RGB or RGBA file. `rows` holds all rows of one
// pass, each behind its filter byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tovrek {

struct PixelRows {
  std::span<uint8_t> bytes;  // height times (1 + bytesPerLine)
  size_t bytesPerLine;
  size_t bytesPerPixel;

  size_t height() const { return bytes.size() / (bytesPerLine + 1); }
  uint8_t& filter(size_t row) const { return bytes[row * (bytesPerLine + 1)]; }
  std::span<uint8_t> line(size_t row) const {
    return bytes.subspan(row * (bytesPerLine + 1) + 1, bytesPerLine);
  }
};

// Exchanges the first and third byte of every pixel. Right on filtered rows too: filters predict
// each byte from the same channel of other pixels.
void swapRedAndBlue(const PixelRows& rows);

// Undoes each row's filter; the filter bytes stay, for applyRowFilters.
void removeRowFilters(const PixelRows& rows);
// Filters each row again as its filter byte says.
void applyRowFilters(const PixelRows& rows);

// Divides the colours of unfiltered RGBA pixels by their alpha. A colour above its alpha wraps
// around, and pixels without alpha keep their bytes, as in the files that devices show.
void demultiplyAlpha(const PixelRows& rows);

}  // namespace tovrek
