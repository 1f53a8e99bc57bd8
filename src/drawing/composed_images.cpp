#include "drawing/composed_images.h"

#include <fmt/format.h>

#include <cmath>

namespace tovrek {
namespace {

// One image of a composition; none when it is missing or no PNG file.
std::optional<ImageSurface> load(const std::string& path, const char* complaint,
                                 const WrapperLogger& logger) {
  ErrorText error;
  std::optional<ImageSurface> image = ImageSurface::readPng(path, &error);
  if (!image) logger.logError(complaint);
  return image;
}

}  // namespace

std::optional<ImageSurface> createBitmapContextOfSize(ImageSize size, const WrapperLogger& logger) {
  ErrorText error;
  std::optional<ImageSurface> surface = ImageSurface::create(size, &error);
  if (!surface) {
    const bool noMemory = uint64_t{size.width} * size.height != 0;
    logger.logError(noMemory ? "Memory not allocated!" : "Context not created!");
  }
  return surface;
}

std::optional<ImageSurface> DrawMe(const ImageSurface& overlay, const ImageSurface& background,
                                   const WrapperLogger& logger) {
  const ImageSize size = background.size();
  logger.logDetailed(fmt::format("Background size {:f} {:f}", static_cast<double>(size.width),
                                 static_cast<double>(size.height)));
  std::optional<ImageSurface> canvas = createBitmapContextOfSize(size, logger);
  if (!canvas) return std::nullopt;
  // Whole pixels, so that the overlay stays sharp.
  const auto centred = [](uint32_t outer, uint32_t inner) {
    return std::trunc((static_cast<double>(outer) - inner) / 2);
  };
  const double x = centred(size.width, overlay.size().width);
  const double y = centred(size.height, overlay.size().height);
  if (!canvas->draw(background, 0, 0) || !canvas->draw(overlay, x, y)) return std::nullopt;
  return canvas;
}

std::optional<ImageSurface> overLayImage(const std::string& overlayPath,
                                         const std::string& backgroundPath,
                                         const WrapperLogger& logger) {
  const std::optional<ImageSurface> overlay =
      load(overlayPath, " overlay file path is not proper", logger);
  if (!overlay) return std::nullopt;
  const std::optional<ImageSurface> background =
      load(backgroundPath, " background image file path is not proper", logger);
  if (!background) return std::nullopt;
  return DrawMe(*overlay, *background, logger);
}

}  // namespace tovrek
