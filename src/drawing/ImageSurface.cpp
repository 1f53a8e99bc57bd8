#include "drawing/ImageSurface.h"

#include <cairo.h>

#include <cstring>

#include "host/files.h"

namespace tovrek {

namespace {

constexpr uint64_t kMaxBytes = uint64_t{512} << 20;
constexpr int kBytesPerPixel = 4;

cairo_status_t appendTo(void* text, const unsigned char* bytes, unsigned size) {
  static_cast<std::string*>(text)->append(bytes, bytes + size);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

struct ImageSurface::Surface {
  explicit Surface(cairo_surface_t* made) : cairo(made) {}
  ~Surface() { cairo_surface_destroy(cairo); }
  Surface(const Surface&) = delete;
  Surface& operator=(const Surface&) = delete;

  cairo_surface_t* cairo;
};

ImageSurface::ImageSurface(std::unique_ptr<Surface> surface) : surface_(std::move(surface)) {}
ImageSurface::~ImageSurface() = default;
ImageSurface::ImageSurface(ImageSurface&&) noexcept = default;
ImageSurface& ImageSurface::operator=(ImageSurface&&) noexcept = default;

namespace {

bool succeeded(cairo_status_t status, ErrorText* error) {
  return status == CAIRO_STATUS_SUCCESS || fail(error, cairo_status_to_string(status));
}

bool sizeIsSane(ImageSize size, ErrorText* error) {
  if (size.width == 0 || size.height == 0) return fail(error, "the image has no pixels");
  const bool fits = uint64_t{size.width} * size.height <= kMaxBytes / kBytesPerPixel;
  return fits || fail(error, "the image is too large");
}

}  // namespace

std::optional<ImageSurface> ImageSurface::create(ImageSize size, ErrorText* error) {
  if (!sizeIsSane(size, error)) return std::nullopt;
  auto surface = std::make_unique<Surface>(cairo_image_surface_create(
      CAIRO_FORMAT_ARGB32, static_cast<int>(size.width), static_cast<int>(size.height)));
  if (!succeeded(cairo_surface_status(surface->cairo), error)) return std::nullopt;
  return ImageSurface(std::move(surface));
}

std::optional<ImageSurface> ImageSurface::readPng(const std::string& path, ErrorText* error) {
  const std::optional<ImageSize> size = readPngSize(path);
  if (!size) {
    fail(error, "not a PNG file");
    return std::nullopt;
  }
  if (!sizeIsSane(*size, error)) return std::nullopt;
  auto surface = std::make_unique<Surface>(cairo_image_surface_create_from_png(path.c_str()));
  if (!succeeded(cairo_surface_status(surface->cairo), error)) return std::nullopt;
  return ImageSurface(std::move(surface));
}

ImageSize ImageSurface::size() const {
  return {static_cast<uint32_t>(cairo_image_surface_get_width(surface_->cairo)),
          static_cast<uint32_t>(cairo_image_surface_get_height(surface_->cairo))};
}

bool ImageSurface::draw(const ImageSurface& image, double x, double y, ErrorText* error) {
  cairo_t* context = cairo_create(surface_->cairo);
  cairo_set_source_surface(context, image.surface_->cairo, x, y);
  cairo_pattern_set_filter(cairo_get_source(context), CAIRO_FILTER_NEAREST);
  cairo_paint(context);
  const cairo_status_t status = cairo_status(context);
  cairo_destroy(context);
  return succeeded(status, error);
}

uint32_t ImageSurface::pixel(uint32_t x, uint32_t y) const {
  const ImageSize bounds = size();
  if (x >= bounds.width || y >= bounds.height) return 0;
  cairo_surface_flush(surface_->cairo);
  const int stride = cairo_image_surface_get_stride(surface_->cairo);
  const unsigned char* row = cairo_image_surface_get_data(surface_->cairo) + size_t{y} * stride;
  uint32_t value = 0;
  std::memcpy(&value, row + size_t{x} * kBytesPerPixel, sizeof value);
  // Opaque formats leave the highest byte undefined.
  const bool opaque = cairo_image_surface_get_format(surface_->cairo) == CAIRO_FORMAT_RGB24;
  return opaque ? value | 0xff000000 : value;
}

bool ImageSurface::writePng(const std::string& path, ErrorText* error) const {
  std::string bytes;
  return succeeded(cairo_surface_write_to_png_stream(surface_->cairo, appendTo, &bytes), error) &&
         writeFileAtomically(path, bytes, error);
}

}  // namespace tovrek
