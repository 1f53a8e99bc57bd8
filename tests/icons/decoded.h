// Pictures out of standard PNG files, by libpng.
#pragma once

#include <png.h>

#include <optional>
#include <string>

#include "tests/support/PngBuilder.h"

namespace tovrek::test {

// None when libpng refuses the file.
inline std::optional<Picture> decodedPng(const std::string& path, int channels = 4) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0) return std::nullopt;
  image.format = channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  Picture picture{image.width, image.height, channels, {}};
  picture.bytes.resize(PNG_IMAGE_SIZE(image));
  const int read = png_image_finish_read(&image, nullptr, picture.bytes.data(), 0, nullptr);
  const bool clean = image.warning_or_error == 0;
  png_image_free(&image);
  return read != 0 && clean ? std::optional(picture) : std::nullopt;
}

}  // namespace tovrek::test
