// The size of a PNG file, read without decoding it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

// In pixels.
struct ImageSize {
  uint32_t width = 0;
  uint32_t height = 0;
  bool operator==(const ImageSize&) const = default;
};

// Width and height of a PNG file, read from its IHDR chunk (the first, or the second after the
// chunk that platform-optimised files start with). None for anything else, with the system's reason
// for a file that cannot be opened or read.
std::optional<ImageSize> readPngSize(const std::string& path, ErrorText* error = nullptr);
// The same for a file in memory.
std::optional<ImageSize> pngSize(std::string_view png);

}  // namespace tovrek
