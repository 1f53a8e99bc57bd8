// One chunk of a PNG file.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tovrek {

struct PngChunk {
  uint32_t length = 0;      // of the data
  uint32_t crc = 0;         // as the file has it
  std::string typeAndData;  // four letters, then `length` bytes

  std::string_view type() const { return std::string_view(typeAndData).substr(0, 4); }
  std::string_view data() const { return std::string_view(typeAndData).substr(4); }
};

}  // namespace tovrek
