// Images drawn over one another.
#pragma once

#include <optional>
#include <string>

#include "drawing/ImageSurface.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// A transparent surface in pixels; none, logged, when it cannot be made.
std::optional<ImageSurface> createBitmapContextOfSize(ImageSize size, const WrapperLogger& logger);
// The background with the overlay drawn on its centre; none when drawing fails.
std::optional<ImageSurface> DrawMe(const ImageSurface& overlay, const ImageSurface& background,
                                   const WrapperLogger& logger);
// The same for two PNG files; one that cannot be read is logged.
std::optional<ImageSurface> overLayImage(const std::string& overlayPath,
                                         const std::string& backgroundPath,
                                         const WrapperLogger& logger);

}  // namespace tovrek
