#include "package/Packager.h"

#include "host/host_info.h"
#include "host/version.h"

namespace tovrek {

Packager Packager::current() {
  return {userName(), machineName(), kToolVersion};
}

XmlElement Packager::GeneratePackagerNode() const {
  XmlElement element("Packager");
  element.append(XmlElement("User", user));
  element.append(XmlElement("Machine", machine));
  element.append(XmlElement("ToolsVersion", toolVersion));
  return element;
}

}  // namespace tovrek
