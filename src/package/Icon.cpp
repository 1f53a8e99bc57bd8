#include "package/Icon.h"

namespace tovrek {

XmlElement Icon::GenerateIconElement() const {
  XmlElement element("Icon");
  element.append(XmlElement("xRes", xRes));
  element.append(XmlElement("yRes", yRes));
  element.append(XmlElement("IconFile", iconFile));
  return element;
}

}  // namespace tovrek
