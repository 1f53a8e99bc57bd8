// An icon as the manifest lists it.
#pragma once

#include <string>

#include "formats/XmlElement.h"

namespace tovrek {

struct Icon {
  XmlElement GenerateIconElement() const;

  std::string xRes;  // pixels
  std::string yRes;
  std::string iconFile;
};

}  // namespace tovrek
