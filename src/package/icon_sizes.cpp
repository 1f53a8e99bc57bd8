#include "package/icon_sizes.h"

#include <fmt/format.h>

#include <set>
#include <utility>

#include "formats/png_size.h"
#include "host/paths.h"

namespace tovrek {
namespace {

constexpr const char* kSizes[] = {"xRes", "yRes"};

std::string manifestIn(const std::string& packageFolder) {
  return joinPath(packageFolder, "manifest.xml");
}

}  // namespace

IconResolution LoadIconImage(const std::string& path, ErrorText* error) {
  const std::optional<ImageSize> size = readPngSize(path, error);
  if (!size) return {};
  return {std::to_string(size->width), std::to_string(size->height)};
}

std::optional<ManifestIcons> ManifestIcons::open(const std::string& packageFolder,
                                                 const WrapperLogger& logger) {
  const std::string path = manifestIn(packageFolder);
  ErrorText error;
  std::optional<XmlDocument> manifest = XmlDocument::readFile(path, &error);
  if (!manifest) {
    logger.logError(fmt::format("Could not read from {}: {}", path, error.text()));
    return std::nullopt;
  }
  ManifestIcons icons(std::move(*manifest), path, logger);
  const auto found = icons.manifest_.find("./MobileAppPackage/MobileApp/Icons/Icon");
  if (found) {
    for (const XmlNode& icon : *found) icons.index(icon);
  }
  return icons;
}

void ManifestIcons::index(const XmlNode& icon) {
  std::set<std::string> names;
  std::vector<std::pair<std::string_view, XmlNode>> sizes;
  for (const XmlNode& child : icon.children()) {
    const std::string name = child.name();
    if (name == "IconFile") names.insert(child.text());
    for (const char* size : kSizes) {
      if (name == size) sizes.emplace_back(size, child);
    }
  }
  for (const std::string& name : names) {
    for (const auto& [size, node] : sizes) nodes_[{name, std::string(size)}].push_back(node);
  }
}

bool ManifestIcons::setSize(const std::string& iconFileName, const IconResolution& size) {
  bool found = true;
  for (const char* child : kSizes) {
    const auto at = nodes_.find({iconFileName, child});
    // In the manifest's own language a name stands between double quote marks.
    if (at == nodes_.end() || iconFileName.find('"') != std::string::npos) {
      logger_->logError(fmt::format("Could not find icons file {} ", child));
      found = false;
      continue;
    }
    for (XmlNode& node : at->second) node.setText(child == kSizes[0] ? size.xRes : size.yRes);
  }
  return found;
}

bool ManifestIcons::save() const {
  ErrorText reason;
  if (manifest_.save(path_, XmlLayout::kCompact, &reason)) return true;
  logger_->logWarning(
      fmt::format("The sizes of icons are missing in {}: {}", path_, reason.text()));
  return false;
}

bool ModifyIconFileRes(const std::string& packageFolder, const std::string& iconFileName,
                       const std::string& iconPath, const WrapperLogger& logger) {
  auto icons = ManifestIcons::open(packageFolder, logger);
  if (!icons) return false;
  const bool found = icons->setSize(iconFileName, LoadIconImage(iconPath));
  return icons->save() && found;
}

}  // namespace tovrek
