// Writing property lists in both forms.
#include "formats/BinaryPlistWriter.h"
#include "formats/PlistValue.h"
#include "formats/XmlPlistWriter.h"
#include "formats/xml_text.h"
#include "host/files.h"

namespace tovrek {

std::string serializePlist(const PlistValue& value, PlistFormat format) {
  if (format == PlistFormat::kXml) {
    XmlPlistWriter writer(XmlPlistLayout::kFile);
    writer.value(value);
    // Texts may hold what no XML reader would take again.
    return xmlText(writer.finish());
  }
  return BinaryPlistWriter().write(value);
}

bool writePlist(const std::string& path, const PlistValue& value, PlistFormat format,
                ErrorText* error) {
  return writeFileAtomically(path, serializePlist(value, format), error);
}

}  // namespace tovrek
