// Drawing surfaces of 32-bit pixels (cairo).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "formats/png_size.h"
#include "host/ErrorText.h"

namespace tovrek {

// A pixel surface, transparent when new.
class ImageSurface {
 public:
  // None, with the reason, for an empty size, one of more than 512 MB, or a PNG file that cannot
  // be decoded (platform-optimised ones cannot).
  static std::optional<ImageSurface> create(ImageSize size, ErrorText* error = nullptr);
  static std::optional<ImageSurface> readPng(const std::string& path, ErrorText* error = nullptr);

  ~ImageSurface();
  ImageSurface(ImageSurface&&) noexcept;
  ImageSurface& operator=(ImageSurface&&) noexcept;

  ImageSize size() const;
  // Draws `image` over this surface, pixel by pixel, its top left corner at (x, y).
  bool draw(const ImageSurface& image, double x, double y, ErrorText* error = nullptr);
  // Alpha, red, green, blue from the highest byte down, colours premultiplied; 0 outside.
  uint32_t pixel(uint32_t x, uint32_t y) const;
  // Writes the file whole or not at all.
  bool writePng(const std::string& path, ErrorText* error = nullptr) const;

 private:
  struct Surface;
  explicit ImageSurface(std::unique_ptr<Surface> surface);
  std::unique_ptr<Surface> surface_;
};

}  // namespace tovrek
