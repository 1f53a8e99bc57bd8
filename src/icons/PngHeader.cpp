#include "icons/PngHeader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <limits>

#include "host/bytes.h"

namespace tovrek {
namespace {

constexpr uint64_t kUnlimited = std::numeric_limits<uint64_t>::max();

struct ColorType {
  int code;
  int channels;
  std::array<int, 5> bitDepths;  // zeros fill the rest
};

constexpr std::array<ColorType, 5> kColorTypes = {{
    {0, 1, {1, 2, 4, 8, 16}},  // grey
    {2, 3, {8, 16}},           // RGB
    {3, 1, {1, 2, 4, 8}},      // palette
    {4, 2, {8, 16}},           // grey with alpha
    {6, 4, {8, 16}},           // RGBA
}};

const ColorType* findColorType(int code) {
  const auto* found = std::find_if(kColorTypes.begin(), kColorTypes.end(),
                                   [code](const ColorType& type) { return type.code == code; });
  return found == kColorTypes.end() ? nullptr : found;
}

// First column and row of each Adam7 pass, and the distances to the next ones.
struct PassGrid {
  uint32_t x, y, dx, dy;
};
constexpr std::array<PassGrid, 7> kAdam7 = {{{0, 0, 8, 8},
                                             {4, 0, 8, 8},
                                             {0, 4, 4, 8},
                                             {2, 0, 4, 4},
                                             {0, 2, 2, 4},
                                             {1, 0, 2, 2},
                                             {0, 1, 1, 2}}};

// How many of 0, 1 ... size-1 lie on the grid first, first+step, ...
uint32_t countOnGrid(uint32_t size, uint32_t first, uint32_t step) {
  return size <= first ? 0 : (size - first - 1) / step + 1;
}

int byteAt(std::string_view data, size_t index) {
  return static_cast<unsigned char>(data[index]);
}

}  // namespace

uint64_t PngPass::dataSize() const {
  if (width == 0 || height == 0) return 0;
  const uint64_t row = bytesPerLine + 1;
  return row > kUnlimited / height ? kUnlimited : row * height;
}

std::optional<PngHeader> PngHeader::parse(std::string_view data, ErrorText* error) {
  const auto refuse = [error](std::string text) {
    fail(error, std::move(text));
    return std::nullopt;
  };
  if (data.size() != 13) return refuse("IHDR chunk length incorrect");

  PngHeader header;
  header.width = *readBig32(data, 0);
  header.height = *readBig32(data, 4);
  header.bitDepth = byteAt(data, 8);
  header.colorType = byteAt(data, 9);
  header.compression = byteAt(data, 10);
  header.filter = byteAt(data, 11);
  header.interlace = byteAt(data, 12);

  // The format keeps dimensions within 31 bits.
  constexpr uint32_t kMaxDimension = std::numeric_limits<int32_t>::max();
  if (header.width == 0 || header.height == 0 || header.width > kMaxDimension ||
      header.height > kMaxDimension) {
    return refuse("image dimensions invalid");
  }
  if (header.compression != 0) {
    return refuse(fmt::format("unknown compression type {}", header.compression));
  }
  if (header.filter != 0) return refuse(fmt::format("unknown filter type {}", header.filter));
  if (header.interlace > 1) {
    return refuse(fmt::format("unknown interlace type {}", header.interlace));
  }
  const ColorType* type = findColorType(header.colorType);
  if (type == nullptr) return refuse(fmt::format("unknown color type {}", header.colorType));
  if (header.bitDepth == 0 || std::find(type->bitDepths.begin(), type->bitDepths.end(),
                                        header.bitDepth) == type->bitDepths.end()) {
    return refuse(
        fmt::format("invalid bit depth {} for color type {}", header.bitDepth, header.colorType));
  }
  return header;
}

int PngHeader::bitsPerPixel() const {
  const ColorType* type = findColorType(colorType);
  return type == nullptr ? 0 : type->channels * bitDepth;
}

std::vector<PngPass> PngHeader::passes() const {
  const auto pass = [this](uint32_t passWidth, uint32_t passHeight) {
    return PngPass{passWidth, passHeight, (uint64_t{passWidth} * bitsPerPixel() + 7) / 8};
  };
  if (interlace == 0) return {pass(width, height)};
  std::vector<PngPass> passes;
  for (const PassGrid& grid : kAdam7) {
    passes.push_back(
        pass(countOnGrid(width, grid.x, grid.dx), countOnGrid(height, grid.y, grid.dy)));
  }
  return passes;
}

uint64_t PngHeader::dataSize() const {
  uint64_t size = 0;
  for (const PngPass& pass : passes()) {
    const uint64_t more = pass.dataSize();
    size = more > kUnlimited - size ? kUnlimited : size + more;
  }
  return size;
}

std::string PngHeader::description() const {
  std::string text = fmt::format(
      "    width              : {}\n"
      "    height             : {}\n"
      "    bit depth          : {}\n"
      "    color type         : {}\n"
      "    compression        : {}\n"
      "    filter             : {}\n"
      "    interlace          : {}\n"
      "    bits per pixel     : {}\n"
      "    bytes per line     : {}\n",
      width, height, bitDepth, colorType, compression, filter, interlace, bitsPerPixel(),
      (uint64_t{width} * bitsPerPixel() + 7) / 8);
  uint64_t filterBytes = 0;
  int number = 0;
  for (const PngPass& pass : passes()) {
    number++;
    if (interlace != 0) {
      text += fmt::format("      pass {}: {} x {}\n", number, pass.width, pass.height);
    }
    if (pass.width != 0) filterBytes += pass.height;
  }
  text += fmt::format(
      "    row filter bytes   : {}\n"
      "    expected data size : {} bytes\n",
      filterBytes, dataSize());
  return text;
}

}  // namespace tovrek
