// An iOS app bundle: a folder that holds its Info.plist, executable and resources directly.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek {

// Nothing is remembered but the path: the pipeline rewrites the Info.plist while it works, and
// every answer below comes from the files as they stand.
//
// Names found inside a bundle come from whoever made the app. An item that lies outside of the
// bundle, by ".." or through a link, counts as missing, so that nothing outside is read into the
// package or edited.
class AppBundle {
 public:
  // None when `path` is no folder.
  static std::optional<AppBundle> open(const std::string& path);

  const std::string& path() const { return path_; }
  // Empty when there is no readable Info.plist.
  PlistDictionary infoPlist() const;
  // False, naming the file and the reason, when there is an Info.plist that cannot be read.
  bool infoPlistIsReadable(ErrorText* error) const;
  // The file named by CFBundleExecutable, else by the folder's name without its extension; none
  // when there is no such file.
  std::optional<std::string> executablePath() const;
  // "<name>.<type>" in the bundle's folder, or "<name>" with an empty type; none when missing.
  std::optional<std::string> resourcePath(std::string_view name, std::string_view type) const;

 private:
  explicit AppBundle(std::string path) : path_(std::move(path)) {}
  bool holds(const std::string& item) const;
  std::string path_;
};

}  // namespace tovrek
