// The sizes of icons, as a manifest has them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "formats/XmlDocument.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// In pixels.
struct IconResolution {
  std::string xRes = "0";
  std::string yRes = "0";
  bool isKnown() const { return xRes != "0" && yRes != "0"; }
};

// Width and height of a PNG file, platform-optimised or not; "0" when unknown, with the system's
// reason for a file that cannot be opened or read.
IconResolution LoadIconImage(const std::string& path, ErrorText* error = nullptr);

// The entries for icons in the manifest.xml of a package folder, found once for all icons.
class ManifestIcons {
 public:
  // None, with an error in the log, when the manifest cannot be read. The logger must outlive this.
  static std::optional<ManifestIcons> open(const std::string& packageFolder,
                                           const WrapperLogger& logger);
  // Sets the size of every entry for that file name. False, with an error in the log for each
  // missing element, when there is none.
  bool setSize(const std::string& iconFileName, const IconResolution& size);
  // False with a warning in the log.
  bool save() const;

 private:
  ManifestIcons(XmlDocument manifest, std::string path, const WrapperLogger& logger)
      : manifest_(std::move(manifest)), path_(std::move(path)), logger_(&logger) {}
  void index(const XmlNode& icon);

  XmlDocument manifest_;
  std::string path_;
  const WrapperLogger* logger_;
  // By file name and element.
  std::map<std::pair<std::string, std::string>, std::vector<XmlNode>> nodes_;
};

// Writes one icon's size into the package folder's manifest.xml.
bool ModifyIconFileRes(const std::string& packageFolder, const std::string& iconFileName,
                       const std::string& iconPath, const WrapperLogger& logger);

}  // namespace tovrek
