#include "package/Packager.h"

#include "host/host_info.h"
#include "host/version.h"

namespace tovrek {

Packager Packager::current() {
  return {userName(), machineName(), kToolVersion};
}

XmlElement Packager::GeneratePackagerNode() const {
  return XmlElement::ofTexts("Packager",
                             {{"User", user}, {"Machine", machine}, {"ToolsVersion", toolVersion}});
}

}  // namespace tovrek
