// What the user may change in a finished manifest.
#pragma once

#include <optional>
#include <string>
#include <utility>

namespace tovrek {

class ManifestData {
 public:
  explicit ManifestData(std::optional<std::string> name) : friendlyName(std::move(name)) {}

  std::optional<std::string> friendlyName;  // none or empty: the manifest keeps its own
  // None empties the element, or leaves it alone where others are to be kept.
  std::optional<std::string> minPlatform;
  std::optional<std::string> maxPlatform;
  std::optional<std::string> excludedDevices;
  bool keepsOthers = false;
};

}  // namespace tovrek
