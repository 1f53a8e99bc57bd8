#include "package/PackageInfo.h"

namespace tovrek {

XmlElement PackageInfo::GeneratePackageInfo(const Packager& packager) const {
  XmlElement element("PackageInfo");
  element.append(XmlElement("Description", name));
  element.append(XmlElement("Date", date));
  element.append(XmlElement("CertExpires", certExpires));
  element.append(packager.GeneratePackagerNode());
  return element;
}

}  // namespace tovrek
