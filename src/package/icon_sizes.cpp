#include "package/icon_sizes.h"

#include <fmt/format.h>

#include <optional>
#include <vector>

#include "formats/XmlDocument.h"
#include "formats/png_size.h"
#include "host/paths.h"

namespace tovrek {
namespace {

// Sets `child` of the manifest's entry for an icon. A name with a double quote mark in it cannot
// be asked for by XPath and counts as missing.
bool setIconSize(XmlDocument& manifest, const std::string& iconFileName, const std::string& child,
                 const std::string& value, const WrapperLogger& logger) {
  const std::string xpath = fmt::format(
      "./MobileAppPackage/MobileApp/Icons/Icon[IconFile=\"{}\"]/{}", iconFileName, child);
  std::optional<std::vector<XmlNode>> nodes;
  if (iconFileName.find('"') == std::string::npos) nodes = manifest.find(xpath);
  if (!nodes || nodes->empty()) {
    logger.logError(fmt::format("Could not find icons file {} ", child));
    return false;
  }
  for (XmlNode& node : *nodes) node.setText(value);
  return true;
}

}  // namespace

IconResolution LoadIconImage(const std::string& path) {
  const std::optional<ImageSize> size = readPngSize(path);
  if (!size) return {};
  return {std::to_string(size->width), std::to_string(size->height)};
}

bool ModifyIconFileRes(const std::string& packageFolder, const std::string& iconFileName,
                       const std::string& iconPath, const WrapperLogger& logger) {
  const std::string manifestPath = joinPath(packageFolder, "manifest.xml");
  ErrorText error;
  std::optional<XmlDocument> manifest = XmlDocument::readFile(manifestPath, &error);
  if (!manifest) {
    logger.logError(fmt::format("Could not read from {}: {}", manifestPath, error.text()));
    return false;
  }
  const IconResolution size = LoadIconImage(iconPath);
  const bool widthSet = setIconSize(*manifest, iconFileName, "xRes", size.xRes, logger);
  const bool heightSet = setIconSize(*manifest, iconFileName, "yRes", size.yRes, logger);
  return manifest->save(manifestPath, XmlLayout::kCompact) && widthSet && heightSet;
}

}  // namespace tovrek
