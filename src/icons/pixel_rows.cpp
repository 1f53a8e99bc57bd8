#include "icons/pixel_rows.h"

#include <fmt/format.h>

#include <cstdlib>
#include <utility>

#include "log/SystemLog.h"

namespace tovrek {
namespace {

// Filter types of the PNG format.
enum : int { kNone = 0, kSub = 1, kUp = 2, kAverage = 3, kPaeth = 4 };

uint8_t paeth(int left, int above, int aboveLeft) {
  const int estimate = left + above - aboveLeft;
  const int toLeft = std::abs(estimate - left);
  const int toAbove = std::abs(estimate - above);
  const int toAboveLeft = std::abs(estimate - aboveLeft);
  if (toLeft <= toAbove && toLeft <= toAboveLeft) return static_cast<uint8_t>(left);
  return static_cast<uint8_t>(toAbove <= toAboveLeft ? above : aboveLeft);
}

// The filter's prediction of byte `i` of a line from unfiltered bytes. `above` is empty for the
// first line of a pass; what lies outside counts as zero.
uint8_t predict(int filter, std::span<const uint8_t> line, std::span<const uint8_t> above, size_t i,
                size_t bytesPerPixel) {
  const bool hasLeft = i >= bytesPerPixel;
  const int left = hasLeft ? line[i - bytesPerPixel] : 0;
  const int up = above.empty() ? 0 : above[i];
  const int upLeft = hasLeft && !above.empty() ? above[i - bytesPerPixel] : 0;
  switch (filter) {
    case kSub:
      return static_cast<uint8_t>(left);
    case kUp:
      return static_cast<uint8_t>(up);
    case kAverage:
      return static_cast<uint8_t>((left + up) / 2);
    case kPaeth:
      return paeth(left, up, upLeft);
    default:
      return 0;
  }
}

std::span<const uint8_t> lineAbove(const PixelRows& rows, size_t row) {
  return row == 0 ? std::span<uint8_t>() : rows.line(row - 1);
}

}  // namespace

void swapRedAndBlue(const PixelRows& rows) {
  for (size_t row = 0; row < rows.height(); row++) {
    const std::span<uint8_t> line = rows.line(row);
    for (size_t i = 0; i + 2 < line.size(); i += rows.bytesPerPixel)
      std::swap(line[i], line[i + 2]);
  }
}

void removeRowFilters(const PixelRows& rows) {
  for (size_t row = 0; row < rows.height(); row++) {
    const int filter = rows.filter(row);
    if (filter == kNone) continue;
    if (filter > kPaeth) {
      printOut(fmt::format("removerowfilter() : Unknown row filter {}\n", filter));
      continue;
    }
    const std::span<uint8_t> line = rows.line(row);
    const std::span<const uint8_t> above = lineAbove(rows, row);
    for (size_t i = 0; i < line.size(); i++) {
      line[i] = static_cast<uint8_t>(line[i] + predict(filter, line, above, i, rows.bytesPerPixel));
    }
  }
}

// Backwards in both directions, so that every prediction is made from bytes not yet filtered.
void applyRowFilters(const PixelRows& rows) {
  for (size_t row = rows.height(); row-- > 0;) {
    const int filter = rows.filter(row);
    if (filter == kNone) continue;
    if (filter > kPaeth) {
      printOut(fmt::format("applyrowfilter : Unknown row filter {}\n", filter));
      continue;
    }
    const std::span<uint8_t> line = rows.line(row);
    const std::span<const uint8_t> above = lineAbove(rows, row);
    for (size_t i = line.size(); i-- > 0;) {
      line[i] = static_cast<uint8_t>(line[i] - predict(filter, line, above, i, rows.bytesPerPixel));
    }
  }
}

void demultiplyAlpha(const PixelRows& rows) {
  for (size_t row = 0; row < rows.height(); row++) {
    const std::span<uint8_t> line = rows.line(row);
    for (size_t i = 0; i + 3 < line.size(); i += 4) {
      const unsigned alpha = line[i + 3];
      if (alpha == 0) continue;
      for (size_t channel = i; channel < i + 3; channel++) {
        line[channel] = static_cast<uint8_t>((line[channel] * 255U + alpha / 2) / alpha);
      }
    }
  }
}

}  // namespace tovrek
