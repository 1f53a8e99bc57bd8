#include "icons/pixel_rows.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include "log/SystemLog.h"

namespace tovrek {
namespace {

// Filter types of the PNG format.
enum : int { kNone = 0, kSub = 1, kUp = 2, kAverage = 3, kPaeth = 4 };

uint8_t byteOf(int value) {
  return static_cast<uint8_t>(value);
}

// Of the left, upper and upper left byte the one nearest to left + above - corner; the first of
// equals. Free of branches: which one wins is next to random.
uint8_t paeth(int left, int above, int corner) {
  const int toLeft = std::abs(above - corner);
  const int toAbove = std::abs(left - corner);
  const int toCorner = std::abs(left + above - 2 * corner);
  const int upper = toAbove <= toCorner ? above : corner;
  return byteOf(((toLeft <= toAbove) & (toLeft <= toCorner)) ? left : upper);
}

// What lies left of the first pixel counts as zero, so that `line[i - kStep]` is only asked for
// from the second pixel on.
template <size_t kStep>
void removeFilter(int filter, std::span<uint8_t> line, const uint8_t* above) {
  uint8_t* const bytes = line.data();
  const size_t size = line.size();
  switch (filter) {
    case kSub:
      for (size_t i = kStep; i < size; i++) bytes[i] = byteOf(bytes[i] + bytes[i - kStep]);
      return;
    case kUp:
      for (size_t i = 0; i < size; i++) bytes[i] = byteOf(bytes[i] + above[i]);
      return;
    case kAverage:
      for (size_t i = 0; i < kStep; i++) bytes[i] = byteOf(bytes[i] + above[i] / 2);
      for (size_t i = kStep; i < size; i++) {
        bytes[i] = byteOf(bytes[i] + (bytes[i - kStep] + above[i]) / 2);
      }
      return;
    default:
      for (size_t i = 0; i < kStep; i++) bytes[i] = byteOf(bytes[i] + above[i]);
      for (size_t i = kStep; i + kStep <= size; i += kStep) {
        for (size_t k = i; k < i + kStep; k++) {
          bytes[k] = byteOf(bytes[k] + paeth(bytes[k - kStep], above[k], above[k - kStep]));
        }
      }
  }
}

// Writes the filtered form of `line` to `filtered`.
template <size_t kStep>
void applyFilter(int filter, std::span<const uint8_t> line, const uint8_t* above,
                 uint8_t* __restrict filtered) {
  const uint8_t* const bytes = line.data();
  const size_t size = line.size();
  switch (filter) {
    case kSub:
      for (size_t i = 0; i < kStep; i++) filtered[i] = bytes[i];
      for (size_t i = kStep; i < size; i++) filtered[i] = byteOf(bytes[i] - bytes[i - kStep]);
      return;
    case kUp:
      for (size_t i = 0; i < size; i++) filtered[i] = byteOf(bytes[i] - above[i]);
      return;
    case kAverage:
      for (size_t i = 0; i < kStep; i++) filtered[i] = byteOf(bytes[i] - above[i] / 2);
      for (size_t i = kStep; i < size; i++) {
        filtered[i] = byteOf(bytes[i] - (bytes[i - kStep] + above[i]) / 2);
      }
      return;
    default:
      for (size_t i = 0; i < kStep; i++) filtered[i] = byteOf(bytes[i] - above[i]);
      for (size_t i = kStep; i < size; i++) {
        filtered[i] = byteOf(bytes[i] - paeth(bytes[i - kStep], above[i], above[i - kStep]));
      }
  }
}

// The line above the first one counts as zeros.
const uint8_t* lineAbove(const PixelRows& rows, size_t row, const std::vector<uint8_t>& zeros) {
  return row == 0 ? zeros.data() : rows.line(row - 1).data();
}

// 2^24 / alpha, rounded up. A 16-bit number times this, shifted back, is the exact quotient: the
// rounding adds less than 2^8 to a factor of less than 2^16, which stays below 2^24.
constexpr int kReciprocalShift = 24;
constexpr std::array<uint32_t, 256> kReciprocals = [] {
  std::array<uint32_t, 256> reciprocals{};
  for (uint32_t alpha = 1; alpha < reciprocals.size(); alpha++) {
    reciprocals[alpha] = ((1U << kReciprocalShift) + alpha - 1) / alpha;
  }
  return reciprocals;
}();

}  // namespace

void swapRedAndBlue(const PixelRows& rows) {
  for (size_t row = 0; row < rows.height(); row++) {
    const std::span<uint8_t> line = rows.line(row);
    for (size_t i = 0; i + 2 < line.size(); i += rows.bytesPerPixel)
      std::swap(line[i], line[i + 2]);
  }
}

void removeRowFilters(const PixelRows& rows) {
  const std::vector<uint8_t> zeros(rows.bytesPerLine);
  for (size_t row = 0; row < rows.height(); row++) {
    const int filter = rows.filter(row);
    if (filter == kNone) continue;
    if (filter > kPaeth) {
      printOut(fmt::format("removerowfilter() : Unknown row filter {}\n", filter));
      continue;
    }
    const auto remove = rows.bytesPerPixel == 3 ? removeFilter<3> : removeFilter<4>;
    remove(filter, rows.line(row), lineAbove(rows, row, zeros));
  }
}

// From the last row up and through a copy of the line, so that every prediction is made from bytes
// not yet filtered.
void applyRowFilters(const PixelRows& rows) {
  const std::vector<uint8_t> zeros(rows.bytesPerLine);
  std::vector<uint8_t> unfiltered(rows.bytesPerLine);
  for (size_t row = rows.height(); row-- > 0;) {
    const int filter = rows.filter(row);
    if (filter == kNone) continue;
    if (filter > kPaeth) {
      printOut(fmt::format("applyrowfilter : Unknown row filter {}\n", filter));
      continue;
    }
    const std::span<uint8_t> line = rows.line(row);
    std::copy(line.begin(), line.end(), unfiltered.begin());
    const auto apply = rows.bytesPerPixel == 3 ? applyFilter<3> : applyFilter<4>;
    apply(filter, unfiltered, lineAbove(rows, row, zeros), line.data());
  }
}

void demultiplyAlpha(const PixelRows& rows) {
  for (size_t row = 0; row < rows.height(); row++) {
    const std::span<uint8_t> line = rows.line(row);
    for (size_t i = 0; i + 3 < line.size(); i += 4) {
      const uint32_t alpha = line[i + 3];
      if (alpha == 0 || alpha == 255) continue;  // 255 divides to the same bytes
      for (size_t channel = i; channel < i + 3; channel++) {
        const uint64_t dividend = line[channel] * 255U + alpha / 2;
        line[channel] = static_cast<uint8_t>(dividend * kReciprocals[alpha] >> kReciprocalShift);
      }
    }
  }
}

}  // namespace tovrek
