// Inflating and deflating the image data of PNG files, and their checksum (libdeflate).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

enum class DeflateWrapping { kRaw, kZlib };

// Inflates to exactly `expectedSize` bytes; none, with the reason, when it gives anything else, or
// more than `room`. Memory is taken only as far as `packed` could ever fill it.
std::optional<std::vector<uint8_t>> inflateImageData(std::string_view packed,
                                                     DeflateWrapping wrapping,
                                                     uint64_t expectedSize, uint64_t room,
                                                     ErrorText* error);

// Deflates with a zlib header; none when the result does not fit deflatedBound().
std::optional<std::string> deflateImageData(const std::vector<uint8_t>& bytes, ErrorText* error);

// Room for `size` bytes deflated: twice as many, which is too little only for a few bytes.
uint64_t deflatedBound(uint64_t size);

// CRC-32 of a chunk: over its type and its data.
uint32_t pngCrc(std::string_view typeAndData);

}  // namespace tovrek
