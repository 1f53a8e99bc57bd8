#include "formats/png_size.h"

#include <cerrno>
#include <cstring>

#include "host/StdioFile.h"
#include "host/bytes.h"

namespace tovrek {
namespace {

uint32_t bigEndian(const unsigned char* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

}  // namespace

std::optional<ImageSize> readPngSize(const std::string& path, ErrorText* error) {
  const StdioFile file = openRegularFile(path, error);
  unsigned char header[8];
  const auto read = [&] {
    if (file == nullptr) return false;
    if (std::fread(header, sizeof header, 1, file.get()) == 1) return true;
    return std::ferror(file.get()) != 0 && fail(error, std::strerror(errno));
  };
  if (!read() || std::memcmp(header, "\x89PNG\r\n\x1a\n", sizeof header) != 0) return std::nullopt;
  for (int chunk = 0; chunk < 2; chunk++) {
    if (!read()) return std::nullopt;  // length and type
    const uint32_t length = bigEndian(header);
    if (std::memcmp(header + 4, "IHDR", 4) == 0) {
      if (length != 13 || !read()) return std::nullopt;
      const ImageSize size{bigEndian(header), bigEndian(header + 4)};
      const bool valid = size.width - 1 < 0x7fffffff && size.height - 1 < 0x7fffffff;
      return valid ? std::optional(size) : std::nullopt;
    }
    // Data and CRC of the first chunk.
    if (std::fseek(file.get(), static_cast<long>(length) + 4, SEEK_CUR) != 0) return std::nullopt;
  }
  return std::nullopt;
}

std::optional<ImageSize> pngSize(std::string_view png) {
  constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
  if (!png.starts_with(kSignature)) return std::nullopt;
  uint64_t at = kSignature.size();
  for (int chunk = 0; chunk < 2; ++chunk) {
    const auto length = readBig32(png, at);
    if (!length || !holds(png, at, 8)) return std::nullopt;
    if (png.substr(at + 4, 4) == "IHDR") {
      const auto width = readBig32(png, at + 8), height = readBig32(png, at + 12);
      if (*length != 13 || !width || !height) return std::nullopt;
      const bool valid = *width - 1 < 0x7fffffff && *height - 1 < 0x7fffffff;
      return valid ? std::optional(ImageSize{*width, *height}) : std::nullopt;
    }
    at += uint64_t{*length} + 12;  // with length, type and CRC
  }
  return std::nullopt;
}

}  // namespace tovrek
