// The sizes of icons, as a manifest has them.
#pragma once

#include <string>

#include "log/WrapperLogger.h"

namespace tovrek {

// In pixels.
struct IconResolution {
  std::string xRes = "0";
  std::string yRes = "0";
  bool isKnown() const { return xRes != "0" && yRes != "0"; }
};

// Width and height of a PNG file, platform-optimised or not; "0" when unknown.
IconResolution LoadIconImage(const std::string& path);
// Writes the icon's size into the package folder's manifest.xml.
bool ModifyIconFileRes(const std::string& packageFolder, const std::string& iconFileName,
                       const std::string& iconPath, const WrapperLogger& logger);

}  // namespace tovrek
