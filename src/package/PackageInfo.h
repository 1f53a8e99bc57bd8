// The general part of a manifest.
#pragma once

#include <string>

#include "formats/XmlElement.h"
#include "package/Packager.h"

namespace tovrek {

struct PackageInfo {
  XmlElement GeneratePackageInfo(const Packager& packager) const;

  std::string name;  // the description
  std::string date;
  std::string certExpires;
};

}  // namespace tovrek
