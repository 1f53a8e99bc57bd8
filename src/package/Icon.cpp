#include "package/Icon.h"

namespace tovrek {

XmlElement Icon::GenerateIconElement() const {
  return XmlElement::ofTexts("Icon", {{"xRes", xRes}, {"yRes", yRes}, {"IconFile", iconFile}});
}

}  // namespace tovrek
