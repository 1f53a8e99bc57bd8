// Who made a package.
#pragma once

#include <string>

#include "formats/XmlElement.h"

namespace tovrek {

struct Packager {
  // The user and machine that run this program.
  static Packager current();
  XmlElement GeneratePackagerNode() const;

  std::string user;
  std::string machine;
  std::string toolVersion;
};

}  // namespace tovrek
